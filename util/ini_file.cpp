// INI file reader: load once, look values up by section and key.
#include "tarvo/inifile.h"

#include "descriptor.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t kInitialBuffer = 4096;

} // namespace

struct IniFile {
    int loaded;
    int length;
    char fileName[128]; // compared on load, never filled: see infLoad
    char section[INF_SECTION_MAX + 1];
    char *text;
    char *sectionStart; // first character of the current section's body
    char *sectionEnd;   // its last character, or the end of the text
    size_t capacity;
};

namespace
{

char *textEnd(IniFile *ini)
{
    return ini->text + ini->length;
}

// The first position at or after `from` that has only blanks between it
// and the start of its line (no line starts before `lineStart`) and that
// `accept` takes; null when the text's NUL comes first.  Each line is looked
// at from its start once, so a lookup is linear in the text walked.
template <typename Accept> char *findLineOpening(char *lineStart, char *from, Accept accept)
{
    for (char *p = lineStart;;) {
        for (;; p++) {
            if (p >= from && *p != '\n' && *p != '\0' && accept(p))
                return p;
            if (*p != ' ' && *p != '\t')
                break;
        }
        char *lineFeed = strchr(p, '\n');
        if (lineFeed == nullptr)
            return nullptr;
        p = lineFeed + 1;
    }
}

bool makeRoom(IniFile *ini, size_t bytes)
{
    if (bytes <= ini->capacity)
        return true;
    char *larger = static_cast<char *>(realloc(ini->text, bytes));
    if (larger == nullptr)
        return false;
    ini->text = larger;
    ini->capacity = bytes;
    return true;
}

// Reads the whole file; false when it cannot be opened, sized or held.  The
// open does not block and anything but a regular file counts as unsizable,
// so a FIFO or a device in the file's place cannot stall the caller.
bool readFile(IniFile *ini, const char *path)
{
    tarvo::Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    int fd = file.get();
    struct stat status {
    };
    bool regular = fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    off_t size = fd < 0 ? 0 : regular ? lseek(fd, 0, SEEK_END) : -1;
    bool readable = regular && size >= 0 && size <= INT_MAX && lseek(fd, 0, SEEK_SET) == 0 &&
                    makeRoom(ini, size_t(size) + 1);
    if (!readable) {
        printf("inf: open file %s fail, %d, %d!\n", path, fd, int(size));
        return false;
    }
    // One read returns at most a little under 2 GiB on Linux.
    ssize_t got = 0;
    for (ssize_t more; got < size && (more = read(fd, ini->text + got, size_t(size - got))) > 0;)
        got += more;
    ini->length = int(got);
    ini->text[ini->length] = '\0';
    ini->loaded = 1;
    return true;
}

// The next section header after `from`: the first '[' that is first on its
// line.  Null when there is none.
char *nextHeader(IniFile *ini, char *from)
{
    return findLineOpening(SFindLineStart(from, ini->text), from,
                           [](const char *p) { return *p == '['; });
}

// The line of `key` in the current section, positioned on its value.
char *findValue(IniFile *ini, const char *section, const char *key)
{
    if (ini == nullptr || !ini->loaded || section == nullptr || *section == '\0' ||
        key == nullptr || *key == '\0')
        return nullptr;
    if (strcmp(section, ini->section) != 0 && infFindSector(ini, section) != 0)
        return nullptr;
    size_t keyLength = strlen(key);
    char *end = textEnd(ini);
    char *found = findLineOpening(ini->sectionStart, ini->sectionStart, [&](char *p) {
        return strncmp(p, key, keyLength) == 0 && *SForSkipSpace(p + keyLength, end) == '=';
    });
    if (found == nullptr || found >= ini->sectionEnd)
        return nullptr;
    return SForSkipSpace(SForSkipSpace(found + keyLength, end) + 1, end);
}

} // namespace

extern "C" {

int infLoad(IniFile **ini, const char *path)
{
    if (ini == nullptr)
        return -1;
    if (*ini == nullptr) {
        auto *made = static_cast<IniFile *>(calloc(1, sizeof(IniFile)));
        char *text = static_cast<char *>(malloc(kInitialBuffer));
        if (made == nullptr || text == nullptr) {
            free(made);
            free(text);
            return -1;
        }
        made->text = text;
        made->capacity = kInitialBuffer;
        *ini = made;
    }
    IniFile *file = *ini;
    if (path == nullptr)
        path = "";
    if (file->loaded && strcmp(path, file->fileName) == 0)
        return 0;
    file->loaded = 0;
    file->section[0] = '\0';
    readFile(file, path);
    return 0;
}

void infRelease(IniFile **ini)
{
    if (ini == nullptr || *ini == nullptr)
        return;
    free((*ini)->text);
    free(*ini);
    *ini = nullptr;
}

int infFindSector(IniFile *ini, const char *name)
{
    if (ini == nullptr || !ini->loaded || name == nullptr || *name == '\0' ||
        strlen(name) > INF_SECTION_MAX)
        return -1;
    size_t nameLength = strlen(name);
    char *bracket = findLineOpening(ini->text, ini->text, [&](const char *p) {
        return *p == '[' && strncmp(p + 1, name, nameLength) == 0 && p[1 + nameLength] == ']';
    });
    if (bracket == nullptr)
        return -1;
    char *body = bracket + nameLength + 3;
    if (body >= textEnd(ini))
        return -1;
    char *end = textEnd(ini);
    if (char *next = nextHeader(ini, body)) {
        // The body ends with the line before the next header, unless that
        // leaves it empty: then it runs on to the end of the text.
        char *lastOfBody = SFindLineStart(next, ini->text) - 2;
        if (lastOfBody > body)
            end = lastOfBody;
    }
    strcpy(ini->section, name);
    ini->sectionStart = body;
    ini->sectionEnd = end;
    return 0;
}

int infGetInt(IniFile *ini, const char *section, const char *key, int *value)
{
    char *found = findValue(ini, section, key);
    if (found == nullptr || value == nullptr)
        return -1;
    *value = atoi(found);
    return 0;
}

int infGetStr(IniFile *ini, const char *section, const char *key, char *value)
{
    char *found = findValue(ini, section, key);
    if (found == nullptr || value == nullptr)
        return -1;
    size_t length = 0;
    if (found <= ini->sectionEnd && found < textEnd(ini) && *found != '\n') {
        char *lineEnd = SFindLineEnd(found, textEnd(ini));
        if (lineEnd == textEnd(ini)) // the last line has no line feed
            lineEnd--;
        char *last = SBackSkipSpace(lineEnd, found);
        length = size_t(last - found) + 1;
    }
    if (length > INF_VALUE_MAX - 1)
        length = INF_VALUE_MAX - 1;
    memcpy(value, found, length);
    value[length] = '\0';
    return 0;
}

} // extern "C"
