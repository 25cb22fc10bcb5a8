/* What the peer drivers share: the file read as veltcheck reads it (read(2)
 * into one 64 KiB buffer) and the digest printed the way rhash prints it. */
#ifndef VELT_BENCH_PEERS_COMMON_H
#define VELT_BENCH_PEERS_COMMON_H

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#define PEER_CHUNK_BYTES (64 * 1024)

/* Calls update(ctx, data, len) for each chunk of the file; 0 on success. */
static int peer_read_file(const char *path, void (*update)(void *, const unsigned char *, size_t), void *ctx) {
    static unsigned char chunk[PEER_CHUNK_BYTES];
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        perror(path);
        return 1;
    }
    for (;;) {
        ssize_t got = read(fd, chunk, sizeof chunk);
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            perror(path);
            close(fd);
            return 1;
        }
        update(ctx, chunk, (size_t)got);
    }
    close(fd);
    return 0;
}

static void peer_print_hex(const unsigned char *digest, size_t len) {
    for (size_t i = 0; i < len; ++i) printf("%02x", digest[i]);
    printf("\n");
}

static int peer_usage(const char *self) {
    fprintf(stderr, "usage: %s streebog256|gost94cp FILE\n", self);
    return 2;
}

#endif
