// The host's reference counts for shared objects.
#pragma once

class RefCount;

class RefCountManager {
public:
    // A new count of 1 that belongs to owner; null when none can be had.
    static RefCount* acquire(const void* owner);
    // Returns a count whose last reference has gone.
    static void release(RefCount* count);
    static bool lock(RefCount* count);
    static void unlock(RefCount* count);
    // false when the count has already reached zero (the owner is going).
    static bool increment(RefCount* count);
    // The count after the decrement.
    static int decrement(RefCount* count);
    static const void* owner(const RefCount* count);
};
