// The weekly schedule, from schedule.ini in a private working folder.
#include "tarvo/schedule.h"

#include "support/capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/sem.h>
#include <sys/stat.h>

using namespace tarvo::test;
using std::filesystem::directory_iterator;

// A local time in the week from Sunday 2023-12-31, which has no clock change.
static time_t at(int weekday, int hour, int minute, int second)
{
    tm local{};
    local.tm_year = 123, local.tm_mon = 11, local.tm_mday = 31 + weekday, local.tm_isdst = -1;
    local.tm_hour = hour, local.tm_min = minute, local.tm_sec = second;
    return mktime(&local);
}

class Schedules : public ::testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(chdir(dir_.path().c_str()), 0); }
    void TearDown() override { sdRelease(&sd_); }
    // sdLoad's result and output for the text as schedule.ini (null: as it is).
    std::string load(const char *text)
    {
        int result = 0;
        if (text)
            dir_.write("schedule.ini", text);
        std::string printed = captureStdout([&] { result = sdLoad(&sd_); });
        return std::to_string(result) + " " + printed;
    }

    TempDir dir_;
    Schedule *sd_ = nullptr;
};

// Spans of each section, both ends included; a reload into the same handle.
TEST_F(Schedules, SpansReloadAndTimeZero)
{
    // A span before any section, lines led by ';', '#' or a blank, garbage, a span
    // ending before it starts, a long name, and a comment over a 63-character piece.
    const std::string longName(40, 'n');
    // The descriptors open now: no load may keep one more.
    const directory_iterator end;
    const auto descriptors = std::distance(directory_iterator("/proc/self/fd"), end);
    const std::string text =
        "0,00:00:00,23:59:59\n[alarm]\n1,08:00:00,17:00:00\n[night]\n; comment\n"
        "# comment\n 2,01:00:00,02:00:00\n0,22:00:00,23:59:59\ngarbage\n"
        "1,00:00:00,06:00:00\n[crossing]\n3,23:00:00,01:00:00\n[" +
        longName + "]\n;" + std::string(62, 'x') + "1,08:00:00,09:00:00\n";
    ASSERT_EQ(load(text.c_str()), "1 ");
    // Section, weekday (0 Sunday), hour, minute, second, inside.
    const std::tuple<const char *, int, int, int, int, int> moments[] = {
        {"alarm", 1, 8, 0, 0, 1},  {"alarm", 1, 17, 0, 0, 1},    {"alarm", 1, 7, 59, 59, 0},
        {"alarm", 1, 17, 0, 1, 0}, {"alarm", 2, 9, 0, 0, 0},     {"Alarm", 1, 9, 0, 0, 0},
        {"night", 0, 23, 0, 0, 1}, {"night", 1, 5, 0, 0, 1},     {"night", 0, 12, 0, 0, 0},
        {"night", 2, 1, 0, 0, 0},  {"crossing", 3, 23, 30, 0, 0}};
    for (const auto &[name, day, hour, minute, second, inside] : moments)
        EXPECT_EQ(InSchedule(sd_, name, at(day, hour, minute, second)), inside)
            << name << day << hour;
    EXPECT_EQ(InSchedule(sd_, longName.substr(0, SD_NAME_MAX).c_str(), at(1, 8, 30, 0)), 1);
    EXPECT_EQ(InSchedule(sd_, longName.c_str(), at(1, 8, 30, 0)) + InSchedule(nullptr, "alarm", 0),
              0);

    time_t now = time(nullptr);
    char span[64];
    strftime(span, sizeof span, "[now]\n%w,%H:%M:%S,23:59:59\n", localtime(&now));
    Schedule *first = sd_;
    ASSERT_EQ(load(span), "1 ");
    EXPECT_EQ(sd_, first);
    EXPECT_EQ(InSchedule(sd_, "alarm", at(1, 9, 0, 0)), 0) << "the old sections are gone";
    EXPECT_EQ(InSchedule(sd_, "now", 0), 1) << "time 0 is now";
    EXPECT_EQ(std::distance(directory_iterator("/proc/self/fd"), end), descriptors);
}

// No file, a FIFO in its place (which must not block the load), a file
// without sections and a broken header: each releases the handle and lock.
TEST_F(Schedules, BadFilesFailAndReleaseTheHandle)
{
    const std::string openFail = "-1 Schedule: open file schedule.ini fail\n";
    EXPECT_EQ(load(nullptr), openFail);
    ASSERT_EQ(mkfifo("schedule.ini", 0600), 0);
    EXPECT_EQ(load(nullptr), openFail);
    ASSERT_EQ(unlink("schedule.ini"), 0);
    EXPECT_EQ(load("; only comments\n# here\n"), "-1 ");
    EXPECT_EQ(load("[open\n1,08:00:00,09:00:00\n"), "-1 Schedule: unreasonable format!\n");
    EXPECT_EQ(sd_, nullptr);
    EXPECT_LT(semget(SD_LOCK_KEY, 0, 0), 0) << "the lock goes with the handle";
}
