// What the decoder's tests share: decoding with what it prints caught, the
// committed frames, and the properties a damaged frame's map must have.
#pragma once

#include "tarvo/jmd.h"

#include "support/capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

namespace tarvo::test::jmd
{

using Bytes = std::vector<uint8_t>;

// Map bytes not written keep this value; kGuard of them follow every map.
inline constexpr uint8_t kUntouched = 0xA5;
inline constexpr size_t kGuard = 64;

// libjpeg, linked first on hosts, defines some jpeg_* steps too: take libTarvo's.
template <typename Function> Function *step(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(dlopen(JMD_LIBRARY, RTLD_LAZY | RTLD_NOLOAD), name));
}

inline std::unique_ptr<JmdContext> freshContext()
{
    auto ctx = std::make_unique<JmdContext>();
    JpegMDInitial(ctx.get());
    return ctx;
}

struct Decoded {
    Bytes map;
    std::string printed;
};

// JpegMDecode into `mapBytes` untouched bytes; nothing may be written past them.
inline Decoded decode(JmdContext *ctx, const Bytes &frame, size_t mapBytes)
{
    Decoded got{Bytes(mapBytes + kGuard, kUntouched), {}};
    got.printed = captureStdout([&] {
        EXPECT_EQ(JpegMDecode(ctx, frame.data(), uint32_t(frame.size()), got.map.data()), 0);
    });
    EXPECT_EQ(Bytes(got.map.begin() + long(mapBytes), got.map.end()), Bytes(kGuard, kUntouched));
    got.map.resize(mapBytes);
    return got;
}

// A frame with its map, and where its scan and restart intervals start.
struct Frame {
    Bytes jpeg;
    Bytes map;
    size_t rowBytes;
    size_t intervalMcus;           // at most the restart interval
    std::vector<size_t> intervals; // where each interval's data starts
};

inline Frame describe(Bytes jpeg, Bytes map)
{
    Frame f{std::move(jpeg), std::move(map), 0, 0, {}};
    auto word = [&](size_t at) { return size_t(f.jpeg[at]) << 8 | f.jpeg[at + 1]; };
    size_t at = 2;
    for (; f.jpeg[at + 1] != 0xDA; at += 2 + word(at + 2))
        f.rowBytes = f.jpeg[at + 1] == 0xC0 ? (word(at + 7) + 7) / 8 : f.rowBytes;
    for (at += 2 + word(at + 2), f.intervals = {at}; at + 1 < f.jpeg.size(); at++)
        if (f.jpeg[at] == 0xFF && (f.jpeg[at + 1] & 0xF8) == 0xD0)
            f.intervals.push_back(at + 2);
    size_t mcus = f.map.size() / f.rowBytes * ((f.rowBytes + 1) / 2); // at least one an interval
    f.intervalMcus = (mcus + f.intervals.size() - 1) / f.intervals.size();
    return f;
}

// The committed frames, NAME.jpg with NAME.map, by NAME.
inline std::map<std::string, Frame> fixtures()
{
    auto read = [](std::filesystem::path path) {
        return Bytes(std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()),
                     {});
    };
    std::map<std::string, Frame> frames;
    for (const auto &entry : std::filesystem::directory_iterator(JMD_FIXTURES_DIR))
        if (std::filesystem::path jpeg = entry.path(); jpeg.extension() == ".jpg")
            frames[jpeg.stem()] =
                describe(read(jpeg), read(std::filesystem::path(jpeg).replace_extension(".map")));
    return frames;
}

// The first row of the restart interval byte `offset` is in (0 in the header).
inline size_t rowOf(const Frame &f, size_t offset)
{
    auto next = std::upper_bound(f.intervals.begin() + 1, f.intervals.end(), offset);
    return size_t(next - f.intervals.begin() - 1) * f.intervalMcus / ((f.rowBytes + 1) / 2);
}

// `damaged` (from byte `offset` on) decoded fresh and after `intact` prints the
// documented lines; past a header read, rows before the damage and a failing row
// are intact, later ones untouched; past an intact one both decodes agree.
inline std::pair<Decoded, int> expectDamageProperties(const Frame &intact, const Bytes &damaged,
                                                      size_t offset)
{
    static const std::regex documented(
        "(JMD: read header fail!\n)?(JMD: decompress fail at MCU row: (\\d+)\n)?");
    auto fresh = freshContext(), used = freshContext();
    decode(used.get(), intact.jpeg, intact.map.size());
    Decoded again = decode(used.get(), damaged, intact.map.size());
    Decoded got = decode(fresh.get(), damaged, intact.map.size());
    std::smatch line;
    EXPECT_TRUE(std::regex_match(again.printed, line, documented)) << again.printed;
    EXPECT_TRUE(std::regex_match(got.printed, line, documented)) << got.printed;
    if (line[1].matched)
        return {got, -1};
    EXPECT_TRUE(offset < intact.intervals[0] ||
                (got.printed == again.printed && got.map == again.map));
    int failed = line[3].matched ? std::stoi(line[3]) : -1;
    size_t rows = failed < 0 ? intact.map.size() / intact.rowBytes : size_t(failed);
    auto same = long(std::min(rowOf(intact, offset), rows) * intact.rowBytes);
    auto firstUnwritten = std::min(got.map.size(), (rows + 1) * intact.rowBytes);
    EXPECT_TRUE(std::equal(got.map.begin(), got.map.begin() + same, intact.map.begin()));
    EXPECT_EQ(Bytes(got.map.begin() + long(firstUnwritten), got.map.end()),
              Bytes(got.map.size() - firstUnwritten, kUntouched));
    return {got, failed};
}

// Cuts, failing in the cut's restart interval or later; data ending early at
// EOI, silent, mid-grey past its last MCU; changed bytes; short header; no SOI.
inline void expectDamagedFramesBehave(const Frame &intact)
{
    const Bytes &jpeg = intact.jpeg;
    const size_t scan = intact.intervals[0];
    for (size_t n = 0; n < 8; n++) {
        size_t at = scan + (jpeg.size() - scan) * (2 * n + 1) / 16;
        Bytes cut(jpeg.begin(), jpeg.begin() + long(at));
        EXPECT_GE(expectDamageProperties(intact, cut, at).second, int(rowOf(intact, at))) << at;
        cut.resize(at - (cut.back() == 0xFF));
        cut.insert(cut.end(), {0xFF, 0xD9});
        Decoded ended = expectDamageProperties(intact, cut, at).first;
        auto grey = std::mismatch(ended.map.begin(), ended.map.end(), intact.map.begin()).first;
        grey += std::min<ptrdiff_t>(2, ended.map.end() - grey); // past the MCU it ended in
        EXPECT_EQ(ended.printed, "");
        EXPECT_EQ(Bytes(grey, ended.map.end()), Bytes(size_t(ended.map.end() - grey), 128)) << at;
        Bytes changed = jpeg;
        changed[at] = n % 2 ? 0xFF : uint8_t(changed[at] ^ (1 << n));
        expectDamageProperties(intact, changed, at);
    }
    Bytes header(jpeg.begin(), jpeg.begin() + long(scan / 2));
    EXPECT_EQ(expectDamageProperties(intact, header, 0).first.printed, "JMD: read header fail!\n");
    expectDamageProperties(intact, Bytes(jpeg.begin() + 2, jpeg.end()), 0);
}

} // namespace tarvo::test::jmd
