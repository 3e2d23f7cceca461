// A counted pointer whose counts come from the host's RefCountManager. Used
// for objects that the controller shares with the host's own objects (the
// worker's round callable, held by the controller and by the thread object).
//
// Failures throw KPRuntimeError. A lost count is reported as
// "SafePointer Report:" + the held type's name + " " + the reason, printed
// with a line end and thrown; a count that belongs to another object is
// thrown directly. Nothing escapes a destructor: a failure there is printed.
#pragma once

#include <cstdio>
#include <string>
#include <typeinfo>
#include <utility>

#include "controller/KPRuntimeError.h"
#include "host/RefCountManager.h"

// Counts is the count provider; RefCountManager on a camera, a stand-in in tests.
template <class T, class Counts = RefCountManager> class SafePointer {
public:
    typedef decltype(Counts::acquire(nullptr)) CountPtr;

    // Takes ownership of p, which must not be null, with a new count of 1.
    explicit SafePointer(T* p) : m_pObject(p), m_pCount(nullptr) {
        if (p == nullptr)
            report("Construct from NULL <T>pointer");
        m_pCount = Counts::acquire(p);
        if (m_pCount == nullptr) {
            // Nobody else can hold it yet: give it back rather than leak it.
            delete p;
            m_pObject = nullptr;
            report("Already destructed 1");
        }
    }

    SafePointer(const SafePointer& other) : m_pObject(other.m_pObject), m_pCount(other.m_pCount) {
        incReference();
    }

    SafePointer& operator=(const SafePointer& other) {
        SafePointer objCopy(other);
        std::swap(m_pObject, objCopy.m_pObject);
        std::swap(m_pCount, objCopy.m_pCount);
        return *this;
    }

    ~SafePointer() {
        try {
            decReference();
        } catch (const std::exception& e) {
            std::printf("%s\n", e.what());
            std::fflush(stdout);
        }
    }

    // Drops this reference now, with failures thrown to the caller.
    void reset() {
        decReference();
        m_pObject = nullptr;
        m_pCount = nullptr;
    }

    T* get() const { return m_pObject; }
    T& operator*() const { return *m_pObject; }
    T* operator->() const { return m_pObject; }
    explicit operator bool() const { return m_pObject != nullptr; }

private:
    [[noreturn]] static void report(const char* reason) {
        const std::string strText =
            std::string("SafePointer Report:") + typeid(T).name() + " " + reason;
        std::printf("%s\n", strText.c_str());
        std::fflush(stdout);
        throw KPRuntimeError(strText);
    }

    void incReference() {
        if (m_pCount == nullptr)
            report("Already destructed 1");
        if (!Counts::lock(m_pCount))
            report("Already destructed 2");
        if (Counts::owner(m_pCount) != m_pObject) {
            Counts::unlock(m_pCount);
            throw KPRuntimeError("not valid pointer in inc_reference ");
        }
        const bool bIncremented = Counts::increment(m_pCount);
        Counts::unlock(m_pCount);
        if (!bIncremented)
            report("Already destructed 3");
    }

    // The last reference deletes the object and returns the count.
    void decReference() {
        if (m_pCount == nullptr)
            return; // empty (after reset)
        if (!Counts::lock(m_pCount))
            report("Already destructed 2");
        if (Counts::owner(m_pCount) != m_pObject) {
            Counts::unlock(m_pCount);
            throw KPRuntimeError("not valid pointer in dec_reference");
        }
        const int nLeft = Counts::decrement(m_pCount);
        Counts::unlock(m_pCount);
        if (nLeft == 0) {
            delete m_pObject;
            Counts::release(m_pCount);
        }
        m_pObject = nullptr;
        m_pCount = nullptr;
    }

    T* m_pObject;
    CountPtr m_pCount;
};
