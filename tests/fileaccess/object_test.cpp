// The object itself: creation, initial properties and the current-directory pair.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

class ObjectTest : public TempDirTest {};

TEST_F(ObjectTest, NewObjectStartsClosedWithEmptyOpenError) {
    std::unique_ptr<ClsFileAccess> fa(ClsFileAccess::createNewCls());
    ASSERT_NE(fa, nullptr);
    EXPECT_FALSE(fa->get_EndOfFile());
    EXPECT_FALSE(fa->get_LockFileOnOpen());
    EXPECT_EQ(fa->get_FileOpenError(), 0);
    XString msg("stale");
    fa->get_FileOpenErrorMsg(msg);
    EXPECT_TRUE(msg.isEmpty()) << "the output is replaced, not appended to";
    fa->put_LockFileOnOpen(true);
    EXPECT_TRUE(fa->get_LockFileOnOpen());
}

TEST_F(ObjectTest, CurrentDirectoryIsReadAndSetForTheProcess) {
    ClsFileAccess fa;
    const auto before = std::filesystem::current_path();
    XString target(dir().c_str()), out("stale text");
    ASSERT_TRUE(fa.SetCurrentDir(target));
    fa.get_CurrentDir(out);
    EXPECT_EQ(std::string(out.getUtf8()), dir()) << "earlier content must not survive";
    XString missing(path("missing").c_str());
    EXPECT_FALSE(fa.SetCurrentDir(missing));
    std::filesystem::current_path(before);
}
