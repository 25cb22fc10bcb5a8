// Wiping secrets: the one helper every layer uses where key material or a
// buffer that held it dies.
#pragma once

#include <cstddef>

// Overwrites n bytes at p with zeros in a way the compiler keeps. Null or 0: nothing.
void secureZero(void* p, size_t n);

// Wipes n bytes at p when the scope ends, on every path out of it.
class WipeGuard {
public:
    WipeGuard(void* p, size_t n) : p_(p), n_(n) {}
    ~WipeGuard() { secureZero(p_, n_); }
    WipeGuard(const WipeGuard&) = delete;
    WipeGuard& operator=(const WipeGuard&) = delete;

private:
    void* p_;
    size_t n_;
};
