/* libgcrypt peer for scripts/bench: GCRY_MD_STRIBOG256 or GCRY_MD_GOSTR3411_CP. */
#include <gcrypt.h>

#include "common.h"

static void update(void *ctx, const unsigned char *data, size_t len) {
    gcry_md_write(*(gcry_md_hd_t *)ctx, data, len);
}

int main(int argc, char **argv) {
    if (argc != 3) return peer_usage(argv[0]);
    int alg;
    if (strcmp(argv[1], "streebog256") == 0)
        alg = GCRY_MD_STRIBOG256;
    else if (strcmp(argv[1], "gost94cp") == 0)
        alg = GCRY_MD_GOSTR3411_CP;
    else
        return peer_usage(argv[0]);

    if (!gcry_check_version(GCRYPT_VERSION)) {
        fprintf(stderr, "libgcrypt older than the headers\n");
        return 1;
    }
    /* No keys here: secure memory would only cost the set-up. */
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);

    gcry_md_hd_t md;
    gcry_error_t err = gcry_md_open(&md, alg, 0);
    if (err) {
        fprintf(stderr, "gcry_md_open: %s\n", gcry_strerror(err));
        return 1;
    }
    int rc = peer_read_file(argv[2], update, &md);
    if (rc == 0) peer_print_hex(gcry_md_read(md, alg), gcry_md_get_algo_dlen(alg));
    gcry_md_close(md);
    return rc;
}
