// Weekly recording schedule: spans per named section, read from a file.
#include "tarvo/schedule.h"
#include "tarvo/semlock.h"

#include "descriptor.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr const char *kFileName = "schedule.ini";
constexpr int kPieceSize = 64; // a line is read in pieces of up to 63 characters
constexpr useconds_t kReleasePollUs = 10000;

struct Entry {
    int weekday;
    int startHour, startMinute, startSecond;
    int endHour, endMinute, endSecond;
    int start; // seconds of the day
    int end;
};

struct Section {
    char name[SD_NAME_MAX + 1];
    int entryCount;
    Entry *entries;
};

} // namespace

struct Schedule {
    int sectionCount;
    int users;   // InSchedule calls running now, changed under `lock`
    int loading; // set while the tables are rebuilt
    SemLock lock;
    Section *sections;
};

namespace
{

enum class Line { Header, Entry, Nothing };

// Hour * 3600 + minute * 60 + second; absurd fields wrap instead of
// overflowing.
int secondsOfDay(int hour, int minute, int second)
{
    return int(int64_t{hour} * 3600 + int64_t{minute} * 60 + second);
}

// Reads a piece as a span; true when all seven numbers are there.
bool readEntry(const char *piece, Entry &entry)
{
    return sscanf(piece, "%d,%d:%d:%d,%d:%d:%d", &entry.weekday, &entry.startHour,
                  &entry.startMinute, &entry.startSecond, &entry.endHour, &entry.endMinute,
                  &entry.endSecond) == 7;
}

Line classify(const char *piece, Entry &entry)
{
    if (piece[0] == '[')
        return Line::Header;
    if (strchr(";# \t", piece[0]) != nullptr) // also the NUL of an empty piece
        return Line::Nothing;
    return readEntry(piece, entry) ? Line::Entry : Line::Nothing;
}

void freeTables(Schedule *sd)
{
    for (int i = 0; i < sd->sectionCount; i++)
        free(sd->sections[i].entries);
    free(sd->sections);
    sd->sections = nullptr;
    sd->sectionCount = 0;
}

int countHeaders(FILE *file)
{
    char piece[kPieceSize];
    int headers = 0;
    while (fgets(piece, sizeof piece, file))
        headers += piece[0] == '[';
    return headers;
}

// Gives each section an entry array for the spans that follow its header.
bool sizeSections(Schedule *sd, FILE *file)
{
    char piece[kPieceSize];
    Entry entry;
    int current = -1, count = 0;
    auto close = [&] {
        if (current < 0 || count == 0)
            return true;
        sd->sections[current].entries = static_cast<Entry *>(calloc(size_t(count), sizeof(Entry)));
        sd->sections[current].entryCount = count;
        return sd->sections[current].entries != nullptr;
    };
    rewind(file);
    while (fgets(piece, sizeof piece, file)) {
        Line line = classify(piece, entry);
        if (line == Line::Header) {
            if (!close())
                return false;
            if (++current == sd->sectionCount) // the file grew since it was counted
                return true;
            count = 0;
        } else if (line == Line::Entry) {
            count++;
        }
    }
    return close();
}

// Names the sections and stores their spans, as many as were counted.
bool fillSections(Schedule *sd, FILE *file)
{
    char piece[kPieceSize];
    Entry entry;
    int current = -1, index = 0;
    rewind(file);
    while (fgets(piece, sizeof piece, file)) {
        Line line = classify(piece, entry);
        if (line == Line::Header && current + 1 == sd->sectionCount)
            break;
        if (line == Line::Header) {
            const char *closing = strchr(piece, ']');
            if (closing == nullptr) {
                puts("Schedule: unreasonable format!");
                return false;
            }
            Section &section = sd->sections[++current];
            size_t length = size_t(closing - piece - 1);
            if (length > SD_NAME_MAX)
                length = SD_NAME_MAX;
            memcpy(section.name, piece + 1, length);
            section.name[length] = '\0';
            index = 0;
        } else if (line == Line::Entry && current >= 0 &&
                   index < sd->sections[current].entryCount) {
            entry.start = secondsOfDay(entry.startHour, entry.startMinute, entry.startSecond);
            entry.end = secondsOfDay(entry.endHour, entry.endMinute, entry.endSecond);
            sd->sections[current].entries[index++] = entry;
        }
    }
    return true;
}

// The schedule file opened for reading and writing, as the loader has always
// asked.  The open does not block, and anything but a regular file is
// refused, so a FIFO in the file's place cannot stall the caller.
FILE *openScheduleFile()
{
    tarvo::Descriptor fd(open(kFileName, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    struct stat status {
    };
    if (fd.get() < 0 || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    FILE *file = fdopen(fd.get(), "r+");
    if (file != nullptr)
        fd.release();
    return file;
}

bool readSchedule(Schedule *sd, FILE *file)
{
    int headers = countHeaders(file);
    if (headers == 0)
        return false;
    sd->sections = static_cast<Section *>(calloc(size_t(headers), sizeof(Section)));
    if (sd->sections == nullptr) {
        puts("Schedule: allocate memory fail!");
        return false;
    }
    sd->sectionCount = headers;
    if (!sizeSections(sd, file)) {
        puts("Schedule: allocate memory fail!");
        return false;
    }
    return fillSections(sd, file);
}

void adjustUsers(Schedule *sd, int delta)
{
    sfLock(sd->lock);
    sd->users += delta;
    sfUnlock(sd->lock);
}

bool inSpan(const Section &section, int weekday, int seconds)
{
    for (int i = 0; i < section.entryCount; i++) {
        const Entry &entry = section.entries[i];
        if (entry.weekday == weekday && entry.start <= seconds && seconds <= entry.end)
            return true;
    }
    return false;
}

} // namespace

extern "C" {

int sdLoad(Schedule **sd)
{
    if (sd == nullptr)
        return -1;
    Schedule *schedule = *sd;
    if (schedule != nullptr) {
        if (schedule->users != 0)
            return 0;
        schedule->loading = 1;
        freeTables(schedule);
    } else {
        schedule = static_cast<Schedule *>(calloc(1, sizeof(Schedule)));
        if (schedule == nullptr)
            return -1;
        schedule->lock = sfInitial(SD_LOCK_KEY, 1);
        schedule->loading = 1;
        *sd = schedule;
    }
    FILE *file = openScheduleFile();
    if (file == nullptr)
        printf("Schedule: open file %s fail\n", kFileName);
    if (file == nullptr || !readSchedule(schedule, file)) {
        if (file)
            fclose(file);
        sdRelease(sd);
        return -1;
    }
    schedule->loading = 0;
    fclose(file);
    return 1;
}

void sdRelease(Schedule **sd)
{
    if (sd == nullptr || *sd == nullptr)
        return;
    Schedule *schedule = *sd;
    while (__atomic_load_n(&schedule->users, __ATOMIC_ACQUIRE) != 0)
        usleep(kReleasePollUs);
    sfRelease(schedule->lock);
    freeTables(schedule);
    free(schedule);
    *sd = nullptr;
}

int InSchedule(Schedule *sd, const char *name, time_t when)
{
    if (sd == nullptr || sd->sectionCount == 0 || sd->loading || name == nullptr)
        return 0;
    adjustUsers(sd, 1);
    int result = 0;
    for (int i = 0; i < sd->sectionCount; i++) {
        if (strcmp(sd->sections[i].name, name) != 0)
            continue;
        time_t moment = when != 0 ? when : time(nullptr);
        tm local;
        localtime_r(&moment, &local);
        int seconds = secondsOfDay(local.tm_hour, local.tm_min, local.tm_sec);
        result = inSpan(sd->sections[i], local.tm_wday, seconds);
        break;
    }
    adjustUsers(sd, -1);
    return result;
}

} // extern "C"
