// The INI reader as a caller meets it: lookups in real files, and the text
// scanners it exports.
#include "tarvo/inifile.h"

#include "support/capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>

using namespace tarvo::test;

namespace
{

// One loaded file per test.
class Ini : public ::testing::Test
{
  protected:
    void load(const std::string &text)
    {
        infRelease(&ini_);
        ASSERT_EQ(infLoad(&ini_, dir_.write("test.ini", text).c_str()), 0);
    }
    void TearDown() override
    {
        infRelease(&ini_);
        EXPECT_EQ(ini_, nullptr);
    }
    std::string str(const char *section, const char *key, int expected = 0)
    {
        char value[INF_VALUE_MAX];
        strcpy(value, "untouched");
        EXPECT_EQ(infGetStr(ini_, section, key, value), expected) << section << "/" << key;
        return value;
    }

    TempDir dir_;
    IniFile *ini_ = nullptr;
};

struct Lookup {
    const char *text;
    const char *section;
    const char *key;
    int result;
    const char *value; // infGetStr's text ("untouched" when it fails)
    int number;        // infGetInt's value (-99 when it fails)
};

class Lookups : public Ini, public ::testing::WithParamInterface<Lookup>
{
};

TEST_P(Lookups, FindValueBySectionAndKey)
{
    const Lookup &lookup = GetParam();
    load(lookup.text);
    EXPECT_EQ(str(lookup.section, lookup.key, lookup.result), lookup.value);
    int number = -99;
    EXPECT_EQ(infGetInt(ini_, lookup.section, lookup.key, &number), lookup.result);
    EXPECT_EQ(number, lookup.number);
}

INSTANTIATE_TEST_SUITE_P(
    Files, Lookups,
    ::testing::Values(
        Lookup{"[net]\nport = 80\n", "net", "port", 0, "80", 80},
        Lookup{"[net]\nport = 80", "net", "port", 0, "80", 80},
        Lookup{"[ net ]\nport = 80\n", "net", "port", -1, "untouched", -99},
        Lookup{"[cam]\nname=  cam one  \n", "cam", "name", 0, "cam one", 0},
        Lookup{"[cam]\nkey=\nother=1\n", "cam", "key", 0, "", 0},
        Lookup{"[cam]\n \tkey\t= -12x ; note\r\n", "cam", "key", 0, "-12x ; note\r", -12},
        // Not a key: not first on its line, longer, or commented out.
        Lookup{"[cam]\nkeyX=5\nx key=5\n;key=5\n", "cam", "key", -1, "untouched", -99},
        Lookup{"[cam]\nkeyX=5\nkey=7\n", "cam", "key", 0, "7", 7},
        // A key in the next section is not in this one.
        Lookup{"[a]\nx=1\n[b]\nkey=2\n", "a", "key", -1, "untouched", -99},
        Lookup{"[a]\nx=1\n[b]\nkey=2\n", "b", "key", 0, "2", 2},
        // An empty section runs on to the end of the file.
        Lookup{"[a]\n[b]\nkey=2\n", "a", "key", 0, "2", 2},
        // A header on the last line has no body.
        Lookup{"key=1\n[a]", "a", "key", -1, "untouched", -99},
        // A bracket inside a line is no header; the name must fill the brackets.
        Lookup{"[a]\nx=[b]\nkey=3\n", "a", "key", 0, "3", 3},
        Lookup{"[ab]\nkey=1\n[b]\nkey=2\n", "b", "key", 0, "2", 2},
        Lookup{"x[b]\nkey=1\n", "b", "key", -1, "untouched", -99},
        Lookup{"  [b]\nkey=4\n", "b", "key", 0, "4", 4}));

TEST_F(Ini, SectionStaysCurrentUntilTheNextLoad)
{
    load("[a]\nx=1\n[b]\nx=2\n");
    EXPECT_EQ(infFindSector(ini_, "b"), 0);
    EXPECT_EQ(str("b", "x"), "2");
    EXPECT_EQ(str("a", "x"), "1");
    EXPECT_EQ(infFindSector(ini_, "c"), -1);
    load("[a]\nx=3\n");
    EXPECT_EQ(str("a", "x"), "3");
    EXPECT_EQ(str("b", "x", -1), "untouched");
}

TEST_F(Ini, LongFilesAndValuesStayInBounds)
{
    std::string text = "[big]\n";
    for (int i = 0; i < 400; i++)
        text += "filler" + std::to_string(i) + " = some value\n";
    text += "last = " + std::string(1000, 'v') + "\n";
    load(text);
    EXPECT_EQ(str("big", "last"), std::string(INF_VALUE_MAX - 1, 'v'));
    int number = 0;
    EXPECT_EQ(infGetInt(ini_, "big", "filler399", &number), 0);
    EXPECT_EQ(infFindSector(ini_, std::string(INF_SECTION_MAX + 1, 's').c_str()), -1);
}

TEST_F(Ini, MissingFileLoadsNothing)
{
    std::string missing = dir_.path() + "/missing.ini";
    std::string out = captureStdout([&] { EXPECT_EQ(infLoad(&ini_, missing.c_str()), 0); });
    EXPECT_EQ(out, "inf: open file " + missing + " fail, -1, 0!\n");
    ASSERT_NE(ini_, nullptr);
    EXPECT_EQ(str("a", "x", -1), "untouched");
    int number = -99;
    EXPECT_EQ(infGetInt(nullptr, "a", "x", &number), -1);
    EXPECT_EQ(infFindSector(nullptr, "a"), -1);
    infRelease(nullptr);
}

TEST_F(Ini, HostileFilesEndPromptly)
{
    std::string fifo = dir_.path() + "/fifo.ini";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::string out = captureStdout([&] { EXPECT_EQ(infLoad(&ini_, fifo.c_str()), 0); });
    EXPECT_EQ(out.rfind("inf: open file " + fifo + " fail, ", 0), 0u) << out;
    EXPECT_EQ(str("a", "x", -1), "untouched");

    // Megabytes of near matches on one line: every lookup stays linear.
    std::string text = "x";
    for (int i = 0; i < 700000; i++)
        text += "[a]";
    text += "\n[b]\n";
    for (int i = 0; i < 700000; i++)
        text += "xk=";
    load(text + "\nk=1\n");
    EXPECT_EQ(infFindSector(ini_, "a"), -1);
    EXPECT_EQ(str("b", "k"), "1");
}

TEST_F(Ini, EmptyPathKeepsALoadedFile)
{
    load("[a]\nx=1\n");
    std::string out = captureStdout([&] { EXPECT_EQ(infLoad(&ini_, ""), 0); });
    EXPECT_EQ(out, "");
    EXPECT_EQ(str("a", "x"), "1");
}

TEST(TextScanners, FollowTheirBounds)
{
    char text[] = "ab \t\ncd\n  \n";
    char *end = text + strlen(text);
    EXPECT_EQ(SFindLineStart(text + 6, text), text + 5);
    EXPECT_EQ(SFindLineStart(text + 1, text), text);
    EXPECT_EQ(SFindLineStart(text + 6, text + 6), text + 6);
    EXPECT_EQ(SFindLineStart(text + 4, text), text + 5) << "a line feed gives the next";
    EXPECT_EQ(SFindLineEnd(text, end), text + 3);
    EXPECT_EQ(SFindLineEnd(text + 4, end), text + 3) << "a line feed gives the one before";
    EXPECT_EQ(SFindLineEnd(text + 5, text + 6), text + 6) << "no line feed before the bound";
    EXPECT_EQ(SForSkipSpace(text + 2, end), text + 4);
    EXPECT_EQ(SForSkipSpace(text + 8, text + 10), text + 10) << "only blanks";
    EXPECT_EQ(SForSkipSpace(text + 9, text + 9), text + 9);
    EXPECT_EQ(SBackSkipSpace(text + 3, text), text + 1);
    EXPECT_EQ(SBackSkipSpace(text + 9, text + 8), text + 8) << "only blanks";
    EXPECT_EQ(SBackSkipSpace(text, text + 4), text);
}

} // namespace
