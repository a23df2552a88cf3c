// Feeds arbitrary files to the INI reader: the first line names a section
// and a key to look up, the rest is the file.
#include "tarvo/inifile.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::string path = "/tmp/tarvo-ini-fuzz-" + std::to_string(getpid()) + ".ini";
    std::string input(reinterpret_cast<const char *>(data), size);
    size_t lineEnd = input.find('\n');
    std::string names = lineEnd == std::string::npos ? input : input.substr(0, lineEnd);
    size_t space = names.find(' ');
    std::string section = names.substr(0, space);
    std::string key = space == std::string::npos ? "key" : names.substr(space + 1);

    FILE *file = fopen(path.c_str(), "w");
    if (file == nullptr)
        return 0;
    fwrite(data, 1, size, file);
    fclose(file);

    IniFile *ini = nullptr;
    infLoad(&ini, path.c_str());
    char value[INF_VALUE_MAX];
    int number;
    infGetStr(ini, section.c_str(), key.c_str(), value);
    infGetInt(ini, section.c_str(), key.c_str(), &number);
    infGetStr(ini, "a", "key", value);
    infFindSector(ini, key.c_str());
    infGetInt(ini, section.c_str(), "port", &number);
    infRelease(&ini);
    unlink(path.c_str());
    return 0;
}
