// The INI reader on real files, and the text scanners it exports.
#include "tarvo/inifile.h"

#include "support/capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tarvo::test;
using std::filesystem::directory_iterator;

class Ini : public ::testing::Test
{
  protected:
    void TearDown() override { infRelease(&ini_); }
    // What infLoad printed; load() writes the text to a file and loads that.
    std::string loadPath(const std::string &path)
    {
        return captureStdout([&] { EXPECT_EQ(infLoad(&ini_, path.c_str()), 0); });
    }
    void load(const std::string &text) { loadPath(dir_.write("test.ini", text)); }
    // infGetStr's text, "-" when it fails; infGetInt must agree, as atoi.
    std::string str(const std::string &section, const char *key)
    {
        char value[INF_VALUE_MAX] = "-";
        int number = -99, result = infGetStr(ini_, section.c_str(), key, value);
        EXPECT_EQ(infGetInt(ini_, section.c_str(), key, &number), result);
        EXPECT_EQ(number, result == 0 ? atoi(value) : -99) << value;
        return value;
    }

    TempDir dir_;
    IniFile *ini_ = nullptr;
};

const char *const kLookups[][3] = { // section, key, value ("-": not found)
    {"cam", "port", "80"}, {"cam", "name", "cam one"},
    {"cam", "empty", ""},  {"cam", "pad", "-1x ;\r"},
    {"cam", "key", "7"},   {"cam", "x", "[b]"},
    {"cam", "k", "-"},     {"spaced", "k", "-"},
    {"ab", "k", "2"},      {"b", "k", "3"},
    {"empty", "k", "4"},   {"c", "k", "4"},
    {"d", "k", "-"},       {"e", "k", "8"},
    {"long", "k", "-"}};

// Keys and headers open their lines (after blanks), a header's name fills its
// brackets, a section ends at the next header unless it is empty, and a
// header on the last line has no body.
TEST_F(Ini, LookupsFollowTheFileRules)
{
    const std::string longest(INF_SECTION_MAX, 's'), value(1000, 'v');
    // The descriptors open now: no load may keep one more.
    const directory_iterator end;
    const auto descriptors = std::distance(directory_iterator("/proc/self/fd"), end);
    load("k=0\n[cam]\nport = 80\nname=  cam one  \nempty=\n \tpad\t= -1x ;\r\nkeyX=5\n"
         "x key=5\n;key=5\nkey=7\nx=[b]\n[ spaced ]\nk=1\n[ab]\nk=2\n[b]\nk=3\n[empty]\n  [c]\n"
         "k=4\nx[d]\nk=5\n[" +
         longest + "]\nk=6\n[" + longest + "s]\nk=7\n[long]\nv=" + value + "\n[e]\nk=8");
    for (const auto &lookup : kLookups)
        EXPECT_EQ(str(lookup[0], lookup[1]), lookup[2]) << lookup[0] << "/" << lookup[1];
    EXPECT_EQ(str(longest, "k") + str(longest + "s", "k"), "6-");
    EXPECT_EQ(str("long", "v"), value.substr(0, INF_VALUE_MAX - 1));
    load("[a]\nk=1\n[e]");
    EXPECT_EQ(str("long", "v"), "-") << "a load forgets the current section";
    EXPECT_EQ(str("e", "k") + str("a", "k"), "-1");
    EXPECT_EQ(loadPath(""), "") << "an empty path keeps what is loaded";
    EXPECT_EQ(str("a", "k"), "1");
    EXPECT_EQ(std::distance(directory_iterator("/proc/self/fd"), end), descriptors);
}

TEST_F(Ini, UnreadableFilesFailAndLongLinesStayLinear)
{
    std::string missing = dir_.path() + "/missing.ini", fifo = dir_.path() + "/fifo.ini";
    EXPECT_EQ(loadPath(missing), "inf: open file " + missing + " fail, -1, 0!\n");
    EXPECT_EQ(str("a", "x"), "-");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(loadPath(fifo).rfind("inf: open file " + fifo + " fail, ", 0), 0u);
    EXPECT_EQ(str("a", "x"), "-");
    int number;
    EXPECT_EQ(infGetInt(nullptr, "a", "x", &number) & infFindSector(nullptr, "a"), -1);
    infRelease(nullptr);

    // Megabytes of near matches on one line take as long as any megabytes.
    std::string headers, keys;
    for (int i = 0; i < 700000; i++)
        headers += "[a]", keys += "xk=";
    load("x" + headers + "\n[b]\n" + keys + "\nk=1\n");
    EXPECT_EQ(infFindSector(ini_, "a"), -1);
    EXPECT_EQ(str("b", "k"), "1");
    // Sparse files in memory: one of 2 GiB is refused, one a byte shorter
    // read (where a process can hold it); lookups stop at its first NUL.
    for (uintmax_t size : {uintmax_t(INT_MAX) + 1, uintmax_t(INT_MAX)}) {
        if (size == INT_MAX && sizeof(void *) < 8)
            continue;
        int fd = memfd_create("huge.ini", 0);
        std::string huge = "/proc/self/fd/" + std::to_string(fd), printed;
        ASSERT_EQ(write(fd, "[a]\nx=2\n", 8), 8);
        std::filesystem::resize_file(huge, size);
        printed = loadPath(huge);
        close(fd);
        EXPECT_EQ(printed.rfind("inf: open file " + huge + " fail, ", 0) == 0, size > INT_MAX);
        EXPECT_EQ(str("a", "x"), size > INT_MAX ? "-" : "2") << printed;
    }
}

TEST(TextScanners, FollowTheirBounds)
{
    char text[] = "ab \t\ncd\n  \n";
    const struct {
        char *(*scan)(char *, char *);
        int at, bound, expected;
    } cases[] = {{SFindLineStart, 6, 0, 5}, {SFindLineStart, 1, 0, 0}, {SFindLineStart, 6, 6, 6},
                 {SFindLineStart, 4, 0, 5}, {SFindLineEnd, 0, 11, 3},  {SFindLineEnd, 4, 11, 3},
                 {SFindLineEnd, 5, 6, 6},   {SForSkipSpace, 2, 11, 4}, {SForSkipSpace, 8, 10, 10},
                 {SForSkipSpace, 9, 9, 9},  {SBackSkipSpace, 3, 0, 1}, {SBackSkipSpace, 9, 8, 8},
                 {SBackSkipSpace, 0, 4, 0}};
    for (const auto &c : cases)
        EXPECT_EQ(c.scan(text + c.at, text + c.bound) - text, c.expected) << c.at << " " << c.bound;
}
