// Settings: the embedded defaults, written out and read back through the
// library's INI reader, so that a user's file overrides them key by key.
#include "config.h"

#include "tarvo/inifile.h"
#include "tarvo/profile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace demo
{
namespace
{

constexpr const char kDefaults[] = R"([demo]
profile = 1
frames_per_second = 30
seconds = 0

[stream]
port = 8080

[receiver]
port = 0

[motion]
threshold = 12
min_blocks = 4
min_frames = 5
quiet_frames = 15

[record]
file = recording.mjpeg

[http]
host =
port = 0
user = camera
password = demo
url = /event?what=#s&at=#t

[ftp]
host =
port = 21
user =
password =
directory = snapshots
passive = 1

[mail]
server =
port = 25
auth = 0
user =
password =
from = camera@localhost
to = operator@localhost
subject = Motion detected
)";

// Motion is an alarm around the clock unless the run folder says otherwise.
constexpr const char kSchedule[] = "[alarm]\n0,00:00:00,23:59:59\n1,00:00:00,23:59:59\n"
                                   "2,00:00:00,23:59:59\n3,00:00:00,23:59:59\n"
                                   "4,00:00:00,23:59:59\n5,00:00:00,23:59:59\n"
                                   "6,00:00:00,23:59:59\n";

bool writeFile(const char *path, const char *text)
{
    FILE *file = fopen(path, "w");
    if (file == nullptr)
        return false;
    bool written = fputs(text, file) >= 0;
    return fclose(file) == 0 && written;
}

// Looks a key up in the user's file first, then in the defaults.
class Settings
{
  public:
    Settings(IniFile *user, IniFile *defaults) : user_(user), defaults_(defaults) {}

    int number(const char *section, const char *key) const
    {
        int value = 0;
        if (infGetInt(user_, section, key, &value) != 0)
            infGetInt(defaults_, section, key, &value);
        return value;
    }
    std::string text(const char *section, const char *key) const
    {
        char value[INF_VALUE_MAX] = "";
        if (infGetStr(user_, section, key, value) != 0)
            infGetStr(defaults_, section, key, value);
        return value;
    }

  private:
    IniFile *user_;
    IniFile *defaults_;
};

void readSettings(const Settings &in, Config &config)
{
    if (config.seconds < 0)
        config.seconds = in.number("demo", "seconds");
    config.profile = in.number("demo", "profile");
    config.framesPerSecond = in.number("demo", "frames_per_second");
    config.streamPort = in.number("stream", "port");
    config.receiverPort = in.number("receiver", "port");
    config.threshold = in.number("motion", "threshold");
    config.minBlocks = in.number("motion", "min_blocks");
    config.minFrames = in.number("motion", "min_frames");
    config.quietFrames = in.number("motion", "quiet_frames");
    config.recordFile = in.text("record", "file");
    config.httpHost = in.text("http", "host");
    config.httpPort = in.number("http", "port");
    config.httpUser = in.text("http", "user");
    config.httpPassword = in.text("http", "password");
    config.httpUrl = in.text("http", "url");
    config.ftpHost = in.text("ftp", "host");
    config.ftpPort = in.number("ftp", "port");
    config.ftpUser = in.text("ftp", "user");
    config.ftpPassword = in.text("ftp", "password");
    config.ftpDirectory = in.text("ftp", "directory");
    config.ftpPassive = in.number("ftp", "passive");
    config.mailServer = in.text("mail", "server");
    config.mailPort = in.number("mail", "port");
    config.mailAuth = in.number("mail", "auth");
    config.mailUser = in.text("mail", "user");
    config.mailPassword = in.text("mail", "password");
    config.mailFrom = in.text("mail", "from");
    config.mailTo = in.text("mail", "to");
    config.mailSubject = in.text("mail", "subject");
}

// The value of "--name=value" in argument, or null.
const char *option(const char *argument, const char *name)
{
    size_t length = strlen(name);
    if (strncmp(argument, name, length) != 0 || argument[length] != '=')
        return nullptr;
    return argument + length + 1;
}

bool parseOptions(int argc, char **argv, Config &config)
{
    config.seconds = -1;
    config.runDir = "demo-run";
    for (int i = 1; i < argc; i++) {
        if (const char *value = option(argv[i], "--seconds"))
            config.seconds = atoi(value);
        else if (const char *value = option(argv[i], "--config"))
            config.configFile = value;
        else if (const char *value = option(argv[i], "--run-dir"))
            config.runDir = value;
        else {
            fprintf(stderr, "usage: %s [--seconds=N] [--config=FILE] [--run-dir=DIR]\n", argv[0]);
            return false;
        }
    }
    // The user's file is named from where the demo was started.
    if (!config.configFile.empty() && config.configFile[0] != '/') {
        char here[4096];
        if (getcwd(here, sizeof here) == nullptr)
            return false;
        config.configFile = std::string(here) + "/" + config.configFile;
    }
    return true;
}

} // namespace

int Config::eventKey() const
{
    return pfGetPKey(profile) + 32;
}

bool loadConfig(int argc, char **argv, Config &config)
{
    if (!parseOptions(argc, argv, config))
        return false;
    mkdir(config.runDir.c_str(), 0755);
    if (chdir(config.runDir.c_str()) != 0 || !writeFile("defaults.ini", kDefaults) ||
        (access("schedule.ini", F_OK) != 0 && !writeFile("schedule.ini", kSchedule))) {
        fprintf(stderr, "demo: cannot prepare the run folder %s\n", config.runDir.c_str());
        return false;
    }
    IniFile *defaults = nullptr, *user = nullptr;
    infLoad(&defaults, "defaults.ini");
    if (!config.configFile.empty())
        infLoad(&user, config.configFile.c_str());
    readSettings(Settings(user, defaults), config);
    infRelease(&user);
    infRelease(&defaults);
    if (config.framesPerSecond < 1 || config.profile < 0) {
        fprintf(stderr, "demo: frames_per_second must be 1 or more, profile 0 or more\n");
        return false;
    }
    return true;
}

} // namespace demo
