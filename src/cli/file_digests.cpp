#include "cli/file_digests.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/file_guard.h"
#include "cli/hash_list.h"

namespace {

bool hashable(const struct stat& info) { return S_ISREG(info.st_mode) || S_ISBLK(info.st_mode); }

// The CPUs this process may run on (taskset narrows them).
unsigned usableCpus() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
    return static_cast<unsigned>(std::max(1, CPU_COUNT(&set)));
}

}  // namespace

uint32_t FileReader::hash(uint32_t algId, const char* path, unsigned char* digest, const std::atomic<bool>* stop) {
    if (path == nullptr) return 0;
    // Never waits: a FIFO would block the open until a writer came, and a
    // FIFO, a socket or a character device (/dev/zero) may never end. Only
    // regular files and block devices have contents to vouch for; a
    // directory is refused too, as it would hash like an empty file.
    const FdGuard file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (file.get() < 0 || fstat(file.get(), &info) != 0 || !hashable(info)) return 0;
    return hashOpen(algId, file.get(), S_ISREG(info.st_mode) ? info.st_size : -1, digest, stop);
}

uint32_t FileReader::hashOpen(uint32_t algId, int fd, off_t size, unsigned char* digest,
                              const std::atomic<bool>* stop) {
    if (!buffer_) buffer_.reset(new unsigned char[kHashChunkBytes]);
    if (!hash_ || algId_ != algId) {
        hash_.reset(hashCreate(algId));
        algId_ = algId;
    }
    hashInit(hash_.get());
    // A regular file is read up to the size fstat gave: the read that would
    // only report its end is saved.
    for (off_t left = size; left != 0;) {
        if (stop != nullptr && stop->load(std::memory_order_relaxed)) return 0;
        const ssize_t got = read(fd, buffer_.get(), kHashChunkBytes);
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            return 0;  // a read error leaves no digest to trust
        }
        hashUpdate(hash_.get(), buffer_.get(), static_cast<uint32_t>(got));
        if (left > 0) left = got < left ? left - got : 0;
    }
    return hashFinal(hash_.get(), digest, 1);
}

FileReader& threadFileReader() {
    thread_local FileReader reader;
    return reader;
}

FileDigests::FileDigests(uint32_t algId, std::vector<const char*> paths)
    : algId_(algId), paths_(std::move(paths)), slots_(paths_.size()) {
    // The caller's thread hashes too, while it waits for the file it wants.
    const unsigned hashers = std::min<size_t>({usableCpus(), kMaxThreads, paths_.size()});
    if (hashers <= 1) return;
    // Enough files ahead to keep every thread busy, with small files too,
    // and no more: after a failure, little is wasted.
    window_ = 4 * hashers;
    for (unsigned i = 1; i < hashers; ++i) {
        try {
            workers_.emplace_back(&FileDigests::work, this);
        } catch (const std::system_error&) {
            break;  // out of threads: fewer of them, or only the caller's
        }
    }
}

FileDigests::~FileDigests() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    for (auto& worker : workers_) worker.join();
}

bool FileDigests::claimable() const { return started_ < slots_.size() && started_ < taken_ + window_; }

void FileDigests::readAhead(std::unique_lock<std::mutex>& lock) {
    Slot& slot = slots_[started_];
    const char* path = paths_[started_++];
    lock.unlock();
    // Anything but a regular file waits for its turn: opening a FIFO or a
    // device ahead of it could already disturb whoever is at its other end.
    State state = State::Deferred;
    uint32_t length = 0;
    struct stat info;
    if (path != nullptr && stat(path, &info) == 0 && S_ISREG(info.st_mode)) {
        const FdGuard file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (file.get() >= 0 && fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode)) {
            length = threadFileReader().hashOpen(algId_, file.get(), info.st_size, slot.digest, &stop_);
            state = State::Done;
        }
    }
    lock.lock();
    slot.length = length;
    slot.state = state;
    changed_.notify_all();
}

void FileDigests::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stop_ || claimable(); });
        if (stop_) return;
        readAhead(lock);
    }
}

uint32_t FileDigests::next(unsigned char* digest) {
    if (taken_ >= slots_.size()) return 0;
    std::unique_lock<std::mutex> lock(mutex_);
    const size_t i = taken_++;
    changed_.notify_all();  // the window has moved on
    Slot& slot = slots_[i];
    for (;;) {
        if (started_ == i) {
            ++started_;  // its turn has come: read here, whatever kind of file it is
            break;
        }
        if (slot.state != State::Waiting) break;
        if (claimable()) {
            readAhead(lock);
        } else {
            changed_.wait(lock);
        }
    }
    if (slot.state == State::Done) {
        std::memcpy(digest, slot.digest, slot.length);
        return slot.length;
    }
    lock.unlock();
    return threadFileReader().hash(algId_, paths_[i], digest);
}
