// A stand-in for sentry-native 0.7.5 under its own names and signatures, with only what this program calls.
//
// Every function may be called at any time and from any thread. Values and options may be null, which is what the
// functions that make them return without memory. Texts are UTF-8; invalid sequences are replaced. No function throws:
// without memory, a network or a folder to write to, a report is lost.
//
// Unlike the library: there are no sessions, a crash writes a minidump, SENTRY_DSN and SENTRY_RELEASE are not read, and
// without a database path nothing is written to the disk.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SENTRY_SDK_VERSION "0.7.5"

// A breadcrumb or an event.
union sentry_value_u {
    uint64_t _bits;
    double _double;
};
typedef union sentry_value_u sentry_value_t;

typedef enum sentry_level_e
{
    SENTRY_LEVEL_WARNING = 1,
    SENTRY_LEVEL_ERROR = 2,
    SENTRY_LEVEL_FATAL = 3,
} sentry_level_t;

typedef struct sentry_uuid_s
{
    char bytes[16];
} sentry_uuid_t;

typedef struct sentry_options_s sentry_options_t;

sentry_value_t sentry_value_new_breadcrumb(const char* type, const char* message);
sentry_value_t sentry_value_new_message_event(sentry_level_t level, const char* logger, const char* text);

// Makes options, for sentry_init. The environment is that of the variable SENTRY_ENVIRONMENT, or "production".
sentry_options_t* sentry_options_new(void);

// A DSN that cannot be parsed, or whose host is reserved ("invalid" and what lies below it), disables sending. Null
// removes a text. There is no debug output.
void sentry_options_set_dsn(sentry_options_t* opts, const char* dsn);
void sentry_options_set_database_path(sentry_options_t* opts, const char* path);
void sentry_options_set_release(sentry_options_t* opts, const char* release);
void sentry_options_set_debug(sentry_options_t* opts, int debug);

// Takes the options over and starts a session, after closing the one before: creates the database folder, installs the
// crash handler, and sends the pending reports of earlier runs. Returns 0; 1 without options or memory.
int sentry_init(sentry_options_t* options);

// Ends the session. Waits two seconds at most for the envelopes that are not sent yet, and for the pending reports of
// runs that ended meanwhile. Returns how many envelopes of this session stay in the database folder; without any, the
// session leaves nothing there.
int sentry_close(void);

// Takes the value over. A session has the last 100 breadcrumbs.
void sentry_add_breadcrumb(sentry_value_t breadcrumb);

// Takes the value over. Sends the event with the breadcrumbs so far, from another thread. Returns its id; the nil id
// without a session or an event.
sentry_uuid_t sentry_capture_event(sentry_value_t event);

#ifdef __cplusplus
}
#endif
