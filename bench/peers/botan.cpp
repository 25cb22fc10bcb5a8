// Botan 2 peer for scripts/bench: "Streebog-256" or "GOST-34.11".
#include <botan/hash.h>

#include <cstring>
#include <exception>

#include "common.h"

namespace {

void update(void* ctx, const unsigned char* data, size_t len) {
    static_cast<Botan::HashFunction*>(ctx)->update(data, len);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return peer_usage(argv[0]);
    const char* name = nullptr;
    if (std::strcmp(argv[1], "streebog256") == 0)
        name = "Streebog-256";
    else if (std::strcmp(argv[1], "gost94cp") == 0)
        name = "GOST-34.11";
    else
        return peer_usage(argv[0]);

    try {
        const auto hash = Botan::HashFunction::create_or_throw(name);
        const int rc = peer_read_file(argv[2], update, hash.get());
        if (rc == 0) {
            const auto digest = hash->final();
            peer_print_hex(digest.data(), digest.size());
        }
        return rc;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", name, e.what());
        return 1;
    }
}
