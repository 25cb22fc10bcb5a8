/* Nettle peer for scripts/bench: nettle_streebog256 or nettle_gosthash94cp,
 * through the nettle_hash records so both go the same way. */
#include <nettle/gosthash94.h>
#include <nettle/nettle-meta.h>
#include <nettle/streebog.h>

#include "common.h"

static const struct nettle_hash *hash;

static void update(void *ctx, const unsigned char *data, size_t len) {
    hash->update(ctx, len, data);
}

int main(int argc, char **argv) {
    if (argc != 3) return peer_usage(argv[0]);
    if (strcmp(argv[1], "streebog256") == 0)
        hash = &nettle_streebog256;
    else if (strcmp(argv[1], "gost94cp") == 0)
        hash = &nettle_gosthash94cp;
    else
        return peer_usage(argv[0]);

    union {
        struct streebog512_ctx streebog;
        struct gosthash94cp_ctx gost94;
    } ctx;
    unsigned char digest[64];
    hash->init(&ctx);
    int rc = peer_read_file(argv[2], update, &ctx);
    if (rc == 0) {
        hash->digest(&ctx, hash->digest_size, digest);
        peer_print_hex(digest, hash->digest_size);
    }
    return rc;
}
