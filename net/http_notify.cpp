// HTTP event notification: the exported calls.
#include "tarvo/httpnotify.h"

#include "encodings.h"
#include "http_internal.h"

#include <csignal>
#include <cstring>

namespace tarvo::net
{

NetConn httpConn{"hnotify: ", 0, 0};

} // namespace tarvo::net

using namespace tarvo::net;

namespace
{

static_assert(HTTP_BUF_SIZE >= kResponseRoom + 1);
// The longest pair whose "Basic " form still fits in auth.
static_assert(6 + base64Length(HTTP_CREDENTIALS_MAX) < HTTP_AUTH_SIZE &&
              6 + base64Length(HTTP_CREDENTIALS_MAX + 1) >= HTTP_AUTH_SIZE);

// auth = "Basic " and the encoded pair, or unchanged when it does not fit.
bool storeCredentials(HttpJob *job)
{
    char auth[HTTP_AUTH_SIZE];
    TextBuilder credentials(auth);
    if (!basicCredentials(job->user, job->password, credentials))
        return false;
    memcpy(job->auth, auth, size_t(credentials.length()) + 1);
    return true;
}

} // namespace

extern "C" {

int httpInit(HttpJob *job)
{
    if (job == nullptr)
        return 0;
    job->sock = kNoSocket;
    job->result = 0;
    job->status = 0;
    job->event[0] = job->path[0] = job->auth[0] = '\0';
    signal(SIGPIPE, SIG_IGN);
    return 0;
}

int httpDebug(int on)
{
    return setDebug(httpConn, on);
}

int httpForceStop(void)
{
    return raiseForceStop(httpConn);
}

int httpNotify(HttpJob *job)
{
    if (job == nullptr || !job->host || !job->user || !job->password || !job->url)
        return kHttpMissingInput;
    job->status = 0;
    if (job->event[0] == '\0')
        strcpy(job->event, "detected");
    if ((job->user[0] || job->password[0]) && !storeCredentials(job))
        return job->result = kHttpNotSent;
    if (job->url[0]) {
        TextBuilder path(job->path);
        if (!expandTemplate(job->url, fieldText(job->event), job->message, path))
            return job->result = kHttpNotSent;
    }
    download(job);
    closeConnection(httpConn, job->sock);
    return job->result;
}

int download(HttpJob *job)
{
    if (job == nullptr)
        return kHttpMissingInput;
    job->sock = netConnect(httpConn, job->host, job->port);
    if (job->sock < 0)
        return job->result = kHttpConnect;
    std::string_view path = fieldText(job->path), auth = fieldText(job->auth);
    TextBuilder request(job->buf);
    request.format("GET %.*s HTTP/1.1\r\nHost: %s\r\n", int(path.size()), path.data(), job->host);
    if (!auth.empty())
        request.format("Authorization: %.*s\r\n", int(auth.size()), auth.data());
    request.append("\r\n");
    if (!request.complete() ||
        netSend(httpConn, job->sock, request.text(), request.length(), SendMode::Text) != 0)
        return job->result = kHttpNotSent;
    job->status = readResponse(httpConn, job->sock, job->buf);
    job->result = 0;
    return 0;
}

} // extern "C"
