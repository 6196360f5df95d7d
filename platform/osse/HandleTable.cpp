#include "HandleTable.h"

#include <pthread.h>

#include <atomic>
#include <mutex>

#include "../System.h"

namespace osse {
namespace {

// Device and inode tell in the child whether the number still means the file it was entered for: a descriptor that was
// closed behind the handle's back may be something else by now, which is not ours to close.
struct Entry {
    int descriptor;
    dev_t device;
    ino_t inode;
};

// Plain memory and constant initialisation: it must serve before the first constructor and after the last destructor.
struct Table {
    std::mutex mutex;
    Entry* entries = nullptr;
    unsigned long count = 0;
    unsigned long capacity = 0;
    unsigned long forks = 0;
    bool handlersInstalled = false;
};

constinit Table table;
constinit std::atomic<unsigned int> generation = 0;

void beforeFork() noexcept {
    table.mutex.lock();
    ++table.forks;
}

void afterForkInParent() noexcept {
    table.mutex.unlock();
}

// Nothing here but calls that are safe in a signal handler: the child may have been forked from any state.
void afterForkInChild() noexcept {
    const platform::ErrnoKeeper keeper;
    for (unsigned long i = 0; i < table.count; ++i) {
        const Entry& entry = table.entries[i];
        struct stat now;
        if (::fstat(entry.descriptor, &now) == 0 && now.st_dev == entry.device && now.st_ino == entry.inode) {
            (void)platform::closeOnce(entry.descriptor);
        }
    }
    table.count = 0;
    generation.fetch_add(1, std::memory_order_relaxed);
    table.mutex.unlock();
}

Entry* find(int descriptor) noexcept {
    for (unsigned long i = 0; i < table.count; ++i) {
        if (table.entries[i].descriptor == descriptor) {
            return &table.entries[i];
        }
    }
    return nullptr;
}

bool makeRoom() noexcept {
    if (table.count < table.capacity) {
        return true;
    }
    const unsigned long capacity = table.capacity == 0 ? 16 : table.capacity * 2;
    void* entries = std::realloc(table.entries, capacity * sizeof(Entry));
    if (entries == nullptr) {
        errno = ENOMEM;
        return false;
    }
    table.entries = static_cast<Entry*>(entries);
    table.capacity = capacity;
    return true;
}

}  // namespace

unsigned int forkGeneration() noexcept {
    return generation.load(std::memory_order_relaxed);
}

bool countForks(unsigned long* forks) noexcept {
    const std::lock_guard guard(table.mutex);
    if (!table.handlersInstalled) {
        const int failure = ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
        if (failure != 0) {
            errno = failure;
            return false;
        }
        table.handlersInstalled = true;
    }
    *forks = table.forks;
    return true;
}

Held holdDescriptor(int descriptor, const unsigned long* forks) noexcept {
    struct stat status;
    if (::fstat(descriptor, &status) != 0) {
        return Held::Failed;
    }
    const std::lock_guard guard(table.mutex);
    if (forks != nullptr && *forks != table.forks) {
        return Held::Forked;
    }
    Entry* entry = find(descriptor);
    if (entry == nullptr) {
        if (!makeRoom()) {
            return Held::Failed;
        }
        entry = &table.entries[table.count++];
    }
    *entry = Entry{descriptor, status.st_dev, status.st_ino};
    return Held::Yes;
}

void releaseDescriptor(int descriptor) noexcept {
    const std::lock_guard guard(table.mutex);
    if (Entry* entry = find(descriptor); entry != nullptr) {
        *entry = table.entries[--table.count];
    }
}

bool isHeld(int descriptor) noexcept {
    const std::lock_guard guard(table.mutex);
    return find(descriptor) != nullptr;
}

}  // namespace osse
