// Tests of file helpers: file sizes of missing, empty and non-regular paths,
// and directory creation for nested, existing and blocked paths.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "othermisc.h"
#include "test_util.h"
#include "vn_mem_hook.h"
#include "zlib_if.h"

namespace {

bool is_dir(const std::string &p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

TEST(FileHelpers, SizeOnDiskOrZero)
{
    TempDir dir;
    ASSERT_TRUE(write_file(dir.file("a.xml"), "<a/>"));
    ASSERT_TRUE(write_file(dir.file("empty.xml"), ""));
    EXPECT_EQ(get_gz_filesize(dir.file("a.xml").c_str()), 4);
    EXPECT_EQ(get_gz_filesize(dir.file("empty.xml").c_str()), 0);
    EXPECT_EQ(get_gz_filesize(dir.file("missing.xml").c_str()), 0);
    EXPECT_EQ(get_gz_filesize(dir.path().c_str()), 0);   // a directory
    EXPECT_EQ(get_gz_filesize(nullptr), 0);
}

TEST(FileHelpers, MakesNestedDirectoriesWithModeReadAsOctal)
{
    TempDir dir;
    mode_t old = umask(022);
    std::string path = dir.file("a/b/c/file.xml");
    EXPECT_EQ(make_dir_from_filename(path.c_str(), 777), 0);
    EXPECT_TRUE(is_dir(dir.file("a/b/c")));
    EXPECT_FALSE(file_exists(path));
    struct stat st;
    ASSERT_EQ(stat(dir.file("a/b").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0755u);   // 0777 limited by the umask
    EXPECT_EQ(make_dir_from_filename(dir.file("m//n/f").c_str(), 700), 0);
    ASSERT_EQ(stat(dir.file("m/n").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    umask(old);
}

TEST(FileHelpers, ExistingDirectoriesAndNoDirectoryPartSucceed)
{
    TempDir dir;
    std::string path = dir.file("x/f.xml");
    EXPECT_EQ(make_dir_from_filename(path.c_str(), 777), 0);
    EXPECT_EQ(make_dir_from_filename(path.c_str(), 777), 0);
    EXPECT_EQ(make_dir_from_filename("plain.xml", 777), 0);
    EXPECT_FALSE(file_exists("plain.xml"));
    EXPECT_EQ(make_dir_from_filename("/f.xml", 777), 0);
}

TEST(FileHelpers, RegularFileInThePathOrBadInputFails)
{
    TempDir dir;
    ASSERT_TRUE(write_file(dir.file("blocker"), "x"));
    EXPECT_EQ(make_dir_from_filename(dir.file("blocker/f.xml").c_str(), 777), -1);
    EXPECT_EQ(make_dir_from_filename(dir.file("blocker/sub/f.xml").c_str(), 777), -1);
    EXPECT_EQ(read_file(dir.file("blocker")), "x");
    EXPECT_EQ(make_dir_from_filename(nullptr, 777), -1);
    EXPECT_EQ(make_dir_from_filename(dir.file("d/f").c_str(), 778), -1);   // 8 is no octal digit
    EXPECT_EQ(make_dir_from_filename(dir.file("d/f").c_str(), -1), -1);
    vn_mem_fail_nth(1);   // its copy of the path can't be had
    EXPECT_EQ(make_dir_from_filename(dir.file("d/f").c_str(), 777), -1);
    vn_mem_fail_nth(0);
    EXPECT_FALSE(file_exists(dir.file("d")));
}

}  // namespace
