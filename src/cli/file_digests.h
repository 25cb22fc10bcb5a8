// Digests of files, read in chunks; for a list, on several threads at once.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "hash/hash.h"

// Where one thread hashes files: its read buffer and hash object, kept for
// every file it reads (a thread's own through threadFileReader()).
class FileReader {
public:
    // The digest of the regular file or block device at path (digest holds
    // 64 bytes): its length, or 0 when the file cannot be opened, is of
    // another kind (a directory, a FIFO, a socket or a character device: never
    // waited on), a read fails, or *stop was set meanwhile.
    uint32_t hash(uint32_t algId, const char* path, unsigned char* digest, const std::atomic<bool>* stop = nullptr);
    // The same for a file already open; size -1 when its end is not known.
    uint32_t hashOpen(uint32_t algId, int fd, off_t size, unsigned char* digest, const std::atomic<bool>* stop);

private:
    std::unique_ptr<unsigned char[]> buffer_;
    HashPtr hash_;
    uint32_t algId_ = 0;
};

FileReader& threadFileReader();

// The digests of a row of files, taken in order with next(), computed on as
// many threads as this process may run on (at most kMaxThreads, the caller's
// among them), at most a few files ahead of the one taken. Only regular files are read ahead; any
// other is left for its turn. Whatever is not taken when the object goes is
// dropped, a file being read is given up at its next chunk.
class FileDigests {
public:
    static constexpr unsigned kMaxThreads = 8;

    // paths may hold nulls: such a file cannot be hashed.
    FileDigests(uint32_t algId, std::vector<const char*> paths);
    ~FileDigests();
    FileDigests(const FileDigests&) = delete;
    FileDigests& operator=(const FileDigests&) = delete;

    // The next file's digest, as FileReader::hash gives it.
    uint32_t next(unsigned char* digest);

private:
    enum class State { Waiting, Done, Deferred };
    struct Slot {
        State state = State::Waiting;
        uint32_t length = 0;
        unsigned char digest[64];
    };
    bool claimable() const;
    // Reads the next file not yet started, if it is a regular file, into its slot.
    void readAhead(std::unique_lock<std::mutex>& lock);
    void work();

    const uint32_t algId_;
    const std::vector<const char*> paths_;
    std::vector<Slot> slots_;
    size_t started_ = 0;  // files handed to a worker
    size_t taken_ = 0;    // files handed to next()'s caller
    size_t window_ = 0;   // files that may be started beyond taken_
    std::atomic<bool> stop_{false};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::thread> workers_;
};
