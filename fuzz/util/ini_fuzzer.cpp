// The INI reader on arbitrary files, asked for the key "key" of section "cam",
// which the seeds hold.
#include "tarvo/inifile.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::string path = "/dev/shm/tarvo-ini-fuzz-" + std::to_string(getpid()) + ".ini";
    FILE *file = fopen(path.c_str(), "w");
    if (file == nullptr)
        return 0;
    fwrite(data, 1, size, file);
    fclose(file);
    IniFile *ini = nullptr;
    char value[INF_VALUE_MAX];
    int number;
    infLoad(&ini, path.c_str());
    infGetStr(ini, "cam", "key", value);
    infGetInt(ini, "cam", "port", &number);
    infRelease(&ini);
    unlink(path.c_str());
    return 0;
}
