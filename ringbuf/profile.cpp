// Profile streams: a numbered ring buffer read frame by frame.
#include "tarvo/profile.h"

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr int kProfileKeyBase = 4097;

} // namespace

extern "C" {

int pfGetPKey(int profile)
{
    return profile + kProfileKeyBase;
}

ProfileStream *pfOpen(int profile)
{
    auto *ps = static_cast<ProfileStream *>(calloc(1, sizeof(ProfileStream)));
    if (ps == nullptr) {
        puts("profile: streaming not ready");
        return nullptr;
    }
    ps->profile = profile;
    char name[24];
    snprintf(name, sizeof name, "Profile%02d", profile);
    ps->ring = rbAttach(pfGetPKey(profile), name);
    if (ps->ring == nullptr) {
        puts("profile: streaming not ready");
        free(ps);
        return nullptr;
    }
    gettimeofday(&ps->opened, nullptr);
    return ps;
}

int pfRead(ProfileStream *ps)
{
    if (ps == nullptr)
        return 0;
    pfUnlock(ps);
    ps->payload = rbGetPayload(ps->ring);
    if (ps->payload != nullptr)
        ps->frames++;
    return int(rbGetCellLength(ps->ring));
}

void pfUnlock(ProfileStream *ps)
{
    if (ps == nullptr || ps->payload == nullptr)
        return;
    rbEndPayload(ps->ring);
    ps->payload = nullptr;
}

void pfClose(ProfileStream *ps)
{
    if (ps == nullptr)
        return;
    pfUnlock(ps);
    rbDetach(ps->ring);
    free(ps);
}

} // extern "C"
