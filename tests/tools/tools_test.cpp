// The command-line tools as a user meets them: processes started from a shell,
// against a ring and a channel served by other processes, and a camera frame.
#include "tarvo/profile.h"

#include "support/area_view.h"
#include "support/child.h"
#include "support/ipc_keys.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

using namespace tarvo::test;
using testing::IsSubstring;

namespace
{

// Starts a tool; its standard output and error come out of the stream.
FILE *start(const char *tool, const std::vector<std::string> &arguments)
{
    std::string command = TOOL_LAUNCHER + std::string(tool);
    for (const std::string &argument : arguments)
        command += " '" + argument + "'";
    return popen((command + " 2>&1").c_str(), "r");
}

// The rest of a started tool's output, once its exit status is checked.
std::string finish(FILE *tool, int status)
{
    std::string output;
    for (int c; (c = fgetc(tool)) != EOF;)
        output += char(c);
    EXPECT_EQ(pclose(tool), W_EXITCODE(status, 0)) << output;
    return output;
}

std::string run(const char *tool, const std::vector<std::string> &arguments, int status = 0)
{
    return finish(start(tool, arguments), status);
}

std::string contents(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

TEST(Tools, RbstatShowsTheFramesOfALiveRingItsDamageAndNoRing)
{
    IpcKeys keys;
    int profile = keys.profileNumber(), key = pfGetPKey(profile);
    std::string k = std::to_string(key);
    Signal written, finished;
    Child writer([&] {
        RingBuffer *ring = rbInitial(key, "ToolsTest", 200, 8, 0);
        for (uint32_t length : {100, 150, 120})
            rbSafeWrite(ring, std::string(length, 'x').data(), length);
        written.raise();
        finished.await();
        return rbRelease(ring);
    });
    ASSERT_EQ(written.await(), '!');
    std::string output = run(RBSTAT_TOOL, {"--profile=" + std::to_string(profile)});
    std::regex frames("frame +1 +100 [\\s\\S]*frame +2 +150 [\\s\\S]*frame +3 +120 ");
    EXPECT_TRUE(std::regex_search(output, frames)) << output;
    EXPECT_PRED_FORMAT2(IsSubstring, "3 frames in the ring, numbers 1 to 3", output);
    EXPECT_PRED_FORMAT2(IsSubstring, "newest 3  no new frames",
                        run(RBSTAT_TOOL, {"--key", k, "--watch", "--seconds", "1"}));

    AreaView area(key); // the second cell's size, past the segment
    area.setField(area.cells().at(1).at, AreaView::Size, 0x7F000000);
    EXPECT_PRED_FORMAT2(IsSubstring, "damaged at cell 1: its payload runs past",
                        run(RBSTAT_TOOL, {"--key", k}, 3));
    finished.raise();
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_PRED_FORMAT2(IsSubstring, "no ring buffer with key " + k,
                        run(RBSTAT_TOOL, {"--key", k}, 1));
}

TEST(Tools, MsgWaitingToolPrintsWhatArrivesAndAnswersTheQuery)
{
    IpcKeys keys;
    std::string k = std::to_string(keys.next());
    FILE *server = start(MSG_TOOL, {"--key", k, "wait", "--count", "4", "--answer", "42"});
    char ready[256] = "";
    EXPECT_PRED_FORMAT2(IsSubstring, ("waiting on key " + k).c_str(), fgets(ready, 256, server));
    run(MSG_TOOL, {"--key", k, "inform", "7", "-5"});
    run(MSG_TOOL, {"--key", k, "inform", "8", "--text", "hello"});
    run(MSG_TOOL, {"--key", k, "event", "3", "11"});
    EXPECT_EQ(run(MSG_TOOL, {"--key", k, "query", "9"}), "42\n");
    std::string served = finish(server, 0);
    EXPECT_TRUE(
        std::regex_match(served, std::regex("inform command 7 value -5\n"
                                            "inform command 8 text \"hello\"\n"
                                            "inform command 3 event 11 at [0-9]+\\.[0-9]{6}\n"
                                            "query command 9, answered 42\n")))
        << served;
    // The waiting tool made the channel and took it away again.
    EXPECT_PRED_FORMAT2(IsSubstring, "no message channel with key " + k,
                        run(MSG_TOOL, {"--key", k, "query", "9"}, 1));
}

TEST(Tools, JmdPrintsAndDrawsTheDecodersMap)
{
    TempDir dir;
    std::string frame = TOOL_FIXTURES "/frame_200x120.jpg", printed;
    std::string map = contents(TOOL_FIXTURES "/frame_200x120.map");
    std::istringstream grid(run(JMD_TOOL, {frame}));
    grid.ignore(1000, '\n');
    for (unsigned value; grid >> value;)
        printed += char(value);
    EXPECT_EQ(printed, map);
    run(JMD_TOOL, {"--pgm", dir.path() + "/map.pgm", frame});
    EXPECT_EQ(contents(dir.path() + "/map.pgm"), "P5\n25 15\n255\n" + map);
    EXPECT_PRED_FORMAT2(IsSubstring, ": 0 of 375 blocks differ by more than 0",
                        run(JMD_TOOL, {"--diff", "0", frame, frame}));
    EXPECT_PRED_FORMAT2(IsSubstring, "its data ends inside block row",
                        run(JMD_TOOL, {dir.write("cut.jpg", contents(frame).substr(0, 1500))}, 1));
}

TEST(Tools, HelpAndUsageErrorsHaveTheirExitStatus)
{
    for (const char *tool : {RBSTAT_TOOL, MSG_TOOL, JMD_TOOL}) {
        EXPECT_PRED_FORMAT2(IsSubstring, "Exit status: 0", run(tool, {"--help"}));
        EXPECT_PRED_FORMAT2(IsSubstring, "unknown option --bad", run(tool, {"--bad"}, 2));
    }
}
