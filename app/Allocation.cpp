// The operators new and delete of a service that is linked with mimalloc, over its malloc and free.
//
// mimalloc brings operators of its own. Built as C, as distributions do, it cannot throw, so that
// its new ends the process when the system gives no more memory. A lack of memory is to cost one
// command or one notification, as with any other allocator: here it is a std::bad_alloc. Nobody
// installs a new-handler, so none is asked.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

void* allocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
    void* block = nullptr;
    const std::size_t least = std::max(static_cast<std::size_t>(alignment), sizeof(void*));
    return posix_memalign(&block, least, size) == 0 ? block : nullptr;
}

void* orThrow(void* block) {
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

} // namespace

void* operator new(std::size_t size) {
    return orThrow(std::malloc(size));
}

void* operator new[](std::size_t size) {
    return orThrow(std::malloc(size));
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return std::malloc(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return std::malloc(size);
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    return orThrow(allocateAligned(size, alignment));
}

void* operator new[](std::size_t size, std::align_val_t alignment) {
    return orThrow(allocateAligned(size, alignment));
}

void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
    return allocateAligned(size, alignment);
}

void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& /*tag*/) noexcept {
    return allocateAligned(size, alignment);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete[](void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}

void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}

void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}

void operator delete(void* block, std::align_val_t /*alignment*/,
                     const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::align_val_t /*alignment*/,
                       const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}
