// The counted pointer of the worker's callable: its reports and its counts.
#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "controller/KPRuntimeError.h"
#include "controller/SafePointer.h"
#include "tests/support/ControllerFixture.h"

namespace {

using coretest::captureStdout;

struct Held {
    static int nDeleted;
    ~Held() { ++nDeleted; }
};
int Held::nDeleted = 0;

// A count provider whose faults a test chooses.
struct FakeCount {
    const void* owner;
    int n;
};
struct FakeCounts {
    static bool bFailAcquire, bFailLock, bFailIncrement, bForeignOwner;
    static int nReleased;
    static void reset() {
        bFailAcquire = bFailLock = bFailIncrement = bForeignOwner = false;
        nReleased = 0;
    }
    static FakeCount* pLast; // the newest count, for tests that must clean up after a refusal
    static FakeCount* acquire(const void* owner) {
        pLast = bFailAcquire ? nullptr : new FakeCount{owner, 1};
        return pLast;
    }
    static void release(FakeCount* count) {
        ++nReleased;
        delete count;
    }
    static bool lock(FakeCount*) { return !bFailLock; }
    static void unlock(FakeCount*) {}
    static bool increment(FakeCount* count) {
        if (bFailIncrement)
            return false;
        ++count->n;
        return true;
    }
    static int decrement(FakeCount* count) { return --count->n; }
    static const void* owner(const FakeCount* count) {
        static int nOther;
        return bForeignOwner ? &nOther : count->owner;
    }
};
bool FakeCounts::bFailAcquire = false;
bool FakeCounts::bFailLock = false;
bool FakeCounts::bFailIncrement = false;
bool FakeCounts::bForeignOwner = false;
int FakeCounts::nReleased = 0;
FakeCount* FakeCounts::pLast = nullptr;

typedef SafePointer<Held, FakeCounts> FakePointer;

std::string report(const char* reason) {
    return std::string("SafePointer Report:") + typeid(Held).name() + " " + reason;
}

// Runs fn, expecting a KPRuntimeError; returns its what() and the output.
std::pair<std::string, std::string> thrown(const std::function<void()>& fn) {
    std::string what = "<nothing thrown>";
    const std::string out = captureStdout([&] {
        try {
            fn();
        } catch (const KPRuntimeError& e) {
            what = e.what();
        }
    });
    return {what, out};
}

class SafePointerTest : public ::testing::Test {
protected:
    void SetUp() override {
        FakeCounts::reset();
        Held::nDeleted = 0;
    }
    void TearDown() override { FakeCounts::reset(); }
};

TEST_F(SafePointerTest, KPRuntimeErrorWhatIsItsText) {
    const KPRuntimeError e("some text");
    EXPECT_STREQ(e.what(), "some text");
    const std::exception& base = e;
    EXPECT_STREQ(base.what(), "some text");
}

TEST_F(SafePointerTest, NullPointerIsReportedAndThrown) {
    const auto result = thrown([] { SafePointer<Held> p(nullptr); });
    EXPECT_EQ(result.first, report("Construct from NULL <T>pointer"));
    EXPECT_EQ(result.second, report("Construct from NULL <T>pointer") + "\n");
}

TEST_F(SafePointerTest, NoCountAtConstructionIsAlreadyDestructed1AndFreesTheObject) {
    FakeCounts::bFailAcquire = true;
    const auto result = thrown([] { FakePointer p(new Held); });
    EXPECT_EQ(result.first, report("Already destructed 1"));
    EXPECT_EQ(result.second, report("Already destructed 1") + "\n");
    EXPECT_EQ(Held::nDeleted, 1);
}

TEST_F(SafePointerTest, CopyOfAReleasedPointerIsAlreadyDestructed1) {
    SafePointer<Held> p(new Held);
    p.reset();
    EXPECT_EQ(Held::nDeleted, 1);
    const auto result = thrown([&] { SafePointer<Held> copy(p); });
    EXPECT_EQ(result.first, report("Already destructed 1"));
    EXPECT_EQ(result.second, report("Already destructed 1") + "\n");
}

TEST_F(SafePointerTest, CountThatCannotBeLockedIsAlreadyDestructed2) {
    FakePointer p(new Held);
    FakeCounts::bFailLock = true;
    const auto result = thrown([&] { FakePointer copy(p); });
    EXPECT_EQ(result.first, report("Already destructed 2"));
    EXPECT_EQ(result.second, report("Already destructed 2") + "\n");
    FakeCounts::bFailLock = false;
}

TEST_F(SafePointerTest, CountRefusingTheIncrementIsAlreadyDestructed3) {
    FakePointer p(new Held);
    FakeCounts::bFailIncrement = true;
    const auto result = thrown([&] { FakePointer copy(p); });
    EXPECT_EQ(result.first, report("Already destructed 3"));
    EXPECT_EQ(result.second, report("Already destructed 3") + "\n");
    FakeCounts::bFailIncrement = false;
}

TEST_F(SafePointerTest, ForeignCountOnCopyIsThrownWithoutAReport) {
    FakePointer p(new Held);
    FakeCounts::bForeignOwner = true;
    const auto result = thrown([&] { FakePointer copy(p); });
    EXPECT_EQ(result.first, "not valid pointer in inc_reference ");
    EXPECT_EQ(result.second, "");
    FakeCounts::bForeignOwner = false;
}

TEST_F(SafePointerTest, ForeignCountOnReleaseIsThrown) {
    FakePointer p(new Held);
    FakeCounts::bForeignOwner = true;
    const auto result = thrown([&] { p.reset(); });
    EXPECT_EQ(result.first, "not valid pointer in dec_reference");
    FakeCounts::bForeignOwner = false;
}

TEST_F(SafePointerTest, ForeignCountInTheDestructorIsPrintedNotThrown) {
    Held* pHeld = new Held;
    const std::string out = captureStdout([&] {
        FakePointer p(pHeld);
        FakeCounts::bForeignOwner = true;
    });
    FakeCounts::bForeignOwner = false;
    EXPECT_EQ(out, "not valid pointer in dec_reference\n");
    // A count that is not its own is never released, and the object stays.
    EXPECT_EQ(Held::nDeleted, 0);
    EXPECT_EQ(FakeCounts::nReleased, 0);
    delete pHeld;
    delete FakeCounts::pLast;
}

TEST_F(SafePointerTest, LastReferenceDeletesTheObjectAndReturnsTheCount) {
    {
        FakePointer p(new Held);
        {
            FakePointer copy(p);
            FakePointer assigned(new Held);
            assigned = copy; // the second object loses its only reference
            EXPECT_EQ(Held::nDeleted, 1);
            EXPECT_EQ(FakeCounts::nReleased, 1);
        }
        EXPECT_EQ(Held::nDeleted, 1);
        EXPECT_EQ(FakeCounts::nReleased, 1);
    }
    EXPECT_EQ(Held::nDeleted, 2);
    EXPECT_EQ(FakeCounts::nReleased, 2);
}

TEST_F(SafePointerTest, HostCountsShareOneObject) {
    {
        SafePointer<Held> p(new Held);
        SafePointer<Held> copy(p);
        EXPECT_EQ(copy.get(), p.get());
        p.reset();
        EXPECT_EQ(Held::nDeleted, 0);
        EXPECT_TRUE(static_cast<bool>(copy));
        EXPECT_FALSE(static_cast<bool>(p));
    }
    EXPECT_EQ(Held::nDeleted, 1);
}

} // namespace
