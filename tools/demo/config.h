// The demo's settings: command-line options over an INI file over the
// embedded defaults.
#ifndef TARVO_DEMO_CONFIG_H
#define TARVO_DEMO_CONFIG_H

#include <string>

namespace demo
{

struct Config {
    std::string runDir;     // working directory of every process
    std::string configFile; // the user's INI file, empty for the defaults only
    int seconds;            // 0: until interrupted
    int profile;            // streaming profile the frames travel through
    int framesPerSecond;
    int streamPort; // 0: any free port
    int receiverPort;
    // Motion detection.
    int threshold;          // brightness change that marks a block changed
    int minBlocks;          // changed blocks that make a frame a motion frame
    int minFrames;          // motion frames in a row that raise an event
    int quietFrames;        // still frames in a row that end it
    std::string recordFile; // empty: recorder off
    // Event notification; an empty host turns a client off, except HTTP,
    // which then goes to the demo's own receiver.
    std::string httpHost, httpUser, httpPassword, httpUrl;
    int httpPort;
    std::string ftpHost, ftpUser, ftpPassword, ftpDirectory;
    int ftpPort, ftpPassive;
    std::string mailServer, mailUser, mailPassword, mailFrom, mailTo, mailSubject;
    int mailPort, mailAuth;

    int eventKey() const; // the event channel: the profile's key + 32
};

// Reads the options (--seconds=N, --config=FILE, --run-dir=DIR), writes
// the defaults as "defaults.ini" and, when missing, "schedule.ini" into the
// run folder and makes it the working directory, then reads the settings.
// False, with a line on standard error, when that fails.
bool loadConfig(int argc, char **argv, Config &config);

} // namespace demo

#endif
