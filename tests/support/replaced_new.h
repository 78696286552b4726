// Replaces the global operator new and delete for a whole test program, so that a test can
// watch or refuse the library's allocations. Include it in one source file of the program,
// which defines testAllocate: the memory for size bytes (size > 0), or null to make the
// allocation fail (operator new then throws std::bad_alloc).
#ifndef VELCAN_TESTS_REPLACED_NEW_H
#define VELCAN_TESTS_REPLACED_NEW_H

#include <cstdlib>
#include <new>

// The replacements pair malloc with free themselves; GCC, seeing both inlined, takes the
// pairing for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* testAllocate(std::size_t size);

void* operator new(std::size_t size) {
    if (void* p = testAllocate(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return testAllocate(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

#endif
