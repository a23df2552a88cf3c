// The weekly schedule, read from schedule.ini in a private working folder
// and evaluated in a fixed time zone.
#include "tarvo/schedule.h"

#include "support/capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/sem.h>
#include <sys/stat.h>
#include <string>
#include <unistd.h>

using namespace tarvo::test;

namespace
{

// Monday 2024-01-01 00:00:00 UTC.
constexpr time_t kMonday = 1704067200;
constexpr time_t kDay = 86400;

time_t at(time_t day, int hour, int minute, int second)
{
    return day + hour * 3600 + minute * 60 + second;
}

class Schedules : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        tzset();
        ASSERT_NE(getcwd(home_, sizeof home_), nullptr);
        ASSERT_EQ(chdir(dir_.path().c_str()), 0);
    }
    void TearDown() override
    {
        sdRelease(&sd_);
        EXPECT_EQ(sd_, nullptr);
        EXPECT_EQ(chdir(home_), 0);
    }
    // Loads the text as schedule.ini; sdLoad's result, and what it printed.
    int load(const std::string &text, std::string *printed = nullptr)
    {
        dir_.write("schedule.ini", text);
        int result = 0;
        std::string out = captureStdout([&] { result = sdLoad(&sd_); });
        if (printed)
            *printed = out;
        return result;
    }

    TempDir dir_;
    char home_[4096];
    Schedule *sd_ = nullptr;
};

TEST_F(Schedules, SpansIncludeBothEndsAndAReloadReadsTheFileAgain)
{
    ASSERT_EQ(load("[alarm]\n1,08:00:00,17:00:00\n"), 1);
    for (auto [when, inside] : {std::pair{at(kMonday, 8, 0, 0), 1},
                                {at(kMonday, 17, 0, 0), 1},
                                {at(kMonday, 7, 59, 59), 0},
                                {at(kMonday, 17, 0, 1), 0},
                                {at(kMonday + kDay, 12, 0, 0), 0}})
        EXPECT_EQ(InSchedule(sd_, "alarm", when), inside) << when;
    EXPECT_EQ(InSchedule(sd_, "Alarm", at(kMonday, 9, 0, 0)), 0);
    EXPECT_EQ(InSchedule(nullptr, "alarm", at(kMonday, 9, 0, 0)), 0);

    Schedule *first = sd_;
    std::string always = "[alarm]\n";
    for (int day = 0; day < 7; day++)
        always += std::to_string(day) + ",00:00:00,23:59:59\n";
    ASSERT_EQ(load(always), 1);
    EXPECT_EQ(sd_, first);
    EXPECT_EQ(InSchedule(sd_, "alarm", 0), 1) << "now, for time 0";
}

TEST_F(Schedules, SectionsKeepTheirOwnSpans)
{
    ASSERT_EQ(load("0,00:00:00,23:59:59\n" // before any section: dropped
                   "[night]\n"
                   "; comment\n"
                   "# comment\n"
                   " 2,01:00:00,02:00:00\n" // led by a blank: no span
                   "0,22:00:00,23:59:59\n"
                   "garbage\n"
                   "1,00:00:00,06:00:00\n"
                   "[crossing]\n"
                   "3,23:00:00,01:00:00\n" // start after end never matches
                   "[day]\n"
                   "2,09:00:00,10:00:00\n"),
              1);
    time_t sunday = kMonday - kDay;
    EXPECT_EQ(InSchedule(sd_, "night", at(sunday, 23, 0, 0)), 1);
    EXPECT_EQ(InSchedule(sd_, "night", at(kMonday, 5, 0, 0)), 1);
    EXPECT_EQ(InSchedule(sd_, "night", at(sunday, 12, 0, 0)), 0);
    EXPECT_EQ(InSchedule(sd_, "night", at(kMonday + kDay, 1, 30, 0)), 0);
    EXPECT_EQ(InSchedule(sd_, "crossing", at(kMonday + 2 * kDay, 23, 30, 0)), 0);
    EXPECT_EQ(InSchedule(sd_, "day", at(kMonday + kDay, 9, 30, 0)), 1);
    EXPECT_EQ(InSchedule(sd_, "day", at(kMonday + kDay, 1, 30, 0)), 0);
}

TEST_F(Schedules, LongNamesAreCutAndLinesReadInPieces)
{
    std::string name(40, 'n');
    ASSERT_EQ(load("[" + name + "]\n1,08:00:00,09:00:00\n"), 1);
    EXPECT_EQ(InSchedule(sd_, name.substr(0, 31).c_str(), at(kMonday, 8, 30, 0)), 1);
    EXPECT_EQ(InSchedule(sd_, name.c_str(), at(kMonday, 8, 30, 0)), 0);
    // A line is read in pieces of 63 characters: the rest of a long comment
    // is a line of its own.
    ASSERT_EQ(load("[a]\n;" + std::string(62, 'x') + "1,08:00:00,09:00:00\n"), 1);
    EXPECT_EQ(InSchedule(sd_, "a", at(kMonday, 8, 30, 0)), 1);
}

struct BadFile {
    const char *text; // null: no regular file
    const char *printed;
    bool fifo = false; // a FIFO in the file's place, which must not block the load
};

class BadFiles : public Schedules, public ::testing::WithParamInterface<BadFile>
{
};

TEST_P(BadFiles, FailAndReleaseTheHandle)
{
    std::string printed;
    if (GetParam().text) {
        EXPECT_EQ(load(GetParam().text, &printed), -1);
    } else {
        ASSERT_TRUE(!GetParam().fifo || mkfifo("schedule.ini", 0600) == 0);
        printed = captureStdout([&] { EXPECT_EQ(sdLoad(&sd_), -1); });
    }
    EXPECT_EQ(printed, GetParam().printed);
    EXPECT_EQ(sd_, nullptr);
    EXPECT_LT(semget(SD_LOCK_KEY, 0, 0), 0) << "the lock is removed with the handle";
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadFiles,
    ::testing::Values(BadFile{nullptr, "Schedule: open file schedule.ini fail\n"},
                      BadFile{nullptr, "Schedule: open file schedule.ini fail\n", true},
                      BadFile{"; only comments\n# here\n", ""},
                      BadFile{"[open\n1,08:00:00,09:00:00\n", "Schedule: unreasonable format!\n"}));

} // namespace
