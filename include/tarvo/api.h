/* Export and linkage helpers shared by every public libTarvo header. */
#ifndef TARVO_API_H
#define TARVO_API_H

#if defined(__GNUC__)
#define TARVO_API __attribute__((visibility("default")))
#else
#define TARVO_API
#endif

#ifdef __cplusplus
#define TARVO_BEGIN_DECLS extern "C" {
#define TARVO_END_DECLS }
#else
#define TARVO_BEGIN_DECLS
#define TARVO_END_DECLS
#endif

#endif
