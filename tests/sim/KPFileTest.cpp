// The simulated host's file object.
#include <gtest/gtest.h>

#include <cstring>

#include "host/KPFile.h"
#include "tests/support/TestSupport.h"

namespace {

using testsupport::TempDeviceRoot;

TEST(KPFileTest, UnopenedFileNeverCrashes) {
    KPFile file;
    char buffer[8];
    EXPECT_EQ(-1, file.read(buffer, sizeof(buffer)));
    EXPECT_EQ(-1, file.write("abc", 3));
    EXPECT_EQ(0, file.getLength());
    EXPECT_EQ(-1, file.getFileHandle());
    EXPECT_EQ("", file.ReadOneLine());
    file.close();
    file.close();
}

TEST(KPFileTest, OpenMissingFileForReadFails) {
    TempDeviceRoot root;
    KPFile file;
    EXPECT_FALSE(file.open(root.real("/missing.cfg").c_str(), KPFile::modeRead));
    EXPECT_EQ(-1, file.getFileHandle());
    EXPECT_FALSE(file.open(nullptr));
}

TEST(KPFileTest, WriteTruncateThenReadBack) {
    TempDeviceRoot root;
    const std::string path = root.real("/data.bin");
    root.write("/data.bin", "old content that is longer");
    {
        KPFile file;
        ASSERT_TRUE(file.open(path.c_str(), KPFile::modeWrite | KPFile::modeTruncate));
        EXPECT_GE(file.getFileHandle(), 0);
        EXPECT_EQ(5, file.write("hello", 5));
        EXPECT_EQ(5, file.getLength());
    }
    EXPECT_EQ("hello", root.read("/data.bin"));
    KPFile file;
    ASSERT_TRUE(file.open(path.c_str(), KPFile::modeRead));
    EXPECT_EQ(5, file.getLength());
    char buffer[16] = {};
    EXPECT_EQ(5, file.read(buffer, sizeof(buffer))); // short at end of file
    EXPECT_STREQ("hello", buffer);
    EXPECT_EQ(0, file.read(buffer, sizeof(buffer)));
    EXPECT_EQ(-1, file.write("x", 1)); // read-only descriptor
}

TEST(KPFileTest, TruncateModeCreatesFileWith0644) {
    TempDeviceRoot root;
    KPFile file;
    ASSERT_TRUE(file.open(root.real("/new.cfg").c_str(), 66));
    struct stat st;
    ASSERT_EQ(0, ::fstat(file.getFileHandle(), &st));
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(0644u & ~mask, st.st_mode & 0777);
}

TEST(KPFileTest, WriteWithoutTruncateKeepsTail) {
    TempDeviceRoot root;
    root.write("/data.bin", "0123456789");
    KPFile file;
    ASSERT_TRUE(file.open(root.real("/data.bin").c_str(), KPFile::modeWrite));
    EXPECT_EQ(3, file.write("abc", 3));
    file.close();
    EXPECT_EQ("abc3456789", root.read("/data.bin"));
}

TEST(KPFileTest, ReadOneLineStripsLineEnds) {
    TempDeviceRoot root;
    root.write("/lines.txt", "first\nsecond\r\n\nlast");
    KPFile file;
    ASSERT_TRUE(file.open(root.real("/lines.txt").c_str()));
    EXPECT_EQ("first", file.ReadOneLine());
    EXPECT_EQ("second", file.ReadOneLine());
    EXPECT_EQ("", file.ReadOneLine());
    EXPECT_EQ("last", file.ReadOneLine());
    EXPECT_EQ("", file.ReadOneLine());
    EXPECT_EQ("", file.ReadOneLine());
}

TEST(KPFileTest, ReadAfterReadOneLineContinuesAfterTheLine) {
    TempDeviceRoot root;
    root.write("/lines.txt", "head\nbody bytes");
    KPFile file;
    ASSERT_TRUE(file.open(root.real("/lines.txt").c_str()));
    EXPECT_EQ("head", file.ReadOneLine());
    char buffer[32] = {};
    EXPECT_EQ(10, file.read(buffer, sizeof(buffer) - 1));
    EXPECT_STREQ("body bytes", buffer);
}

TEST(KPFileTest, LongLineIsReadWhole) {
    TempDeviceRoot root;
    const std::string line(3000, 'k');
    root.write("/long.txt", line + "\nnext\n");
    KPFile file;
    ASSERT_TRUE(file.open(root.real("/long.txt").c_str()));
    EXPECT_EQ(line, file.ReadOneLine());
    EXPECT_EQ("next", file.ReadOneLine());
}

TEST(KPFileTest, OpeningAgainReplacesOldFile) {
    TempDeviceRoot root;
    root.write("/a.txt", "AAAA");
    root.write("/b.txt", "BB");
    KPFile file;
    ASSERT_TRUE(file.open(root.real("/a.txt").c_str()));
    ASSERT_TRUE(file.open(root.real("/b.txt").c_str()));
    EXPECT_EQ(2, file.getLength());
    EXPECT_EQ("BB", file.ReadOneLine());
}

TEST(KPFileTest, CloseIsIdempotent) {
    TempDeviceRoot root;
    root.write("/a.txt", "A");
    KPFile file;
    ASSERT_TRUE(file.open(root.real("/a.txt").c_str()));
    file.close();
    EXPECT_EQ(-1, file.getFileHandle());
    file.close();
    EXPECT_EQ(0, file.getLength());
}

} // namespace
