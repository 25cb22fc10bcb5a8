// Guards that close what they own on every path out of a scope.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
// A stream closed on every path; release() it first where fclose's result matters.
using FileGuard = std::unique_ptr<std::FILE, FileCloser>;

// A descriptor closed on every path (-1: nothing to close).
class FdGuard {
public:
    explicit FdGuard(int fd) : fd_(fd) {}
    ~FdGuard() {
        if (fd_ >= 0) close(fd_);
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};
