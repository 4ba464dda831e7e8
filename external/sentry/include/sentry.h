// A stand-in for sentry-native 0.7.5 under its own names and signatures, with only what this program calls: a small
// reporter that sends events to the server of a DSN and, at the next start, the crash of a run before.
//
// Every function may be called at any time, from any thread, and with null for a text, a value or options. Texts are
// UTF-8 by agreement; what is not comes out with replacement characters. No function throws: without memory, without a
// network, without a folder to write to, a report is lost and nobody is told.
//
// What differs from the library: there are no sessions (so a run in which nothing happens sends nothing), a crash
// leaves a minidump, the address of the server comes from the program alone (SENTRY_DSN is not read), and without a
// database path nothing is written to the disk.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SENTRY_SDK_VERSION "0.7.5"

// A breadcrumb or an event; all bits zero: none. The function that makes one gives one reference to its caller.
union sentry_value_u {
    uint64_t _bits;
    double _double;
};
typedef union sentry_value_u sentry_value_t;

typedef enum sentry_level_e
{
    SENTRY_LEVEL_DEBUG = -1,
    SENTRY_LEVEL_INFO = 0,
    SENTRY_LEVEL_WARNING = 1,
    SENTRY_LEVEL_ERROR = 2,
    SENTRY_LEVEL_FATAL = 3,
} sentry_level_t;

typedef struct sentry_uuid_s
{
    char bytes[16];
} sentry_uuid_t;

typedef struct sentry_options_s sentry_options_t;

// Gives up a reference to a value; the last one frees it.
void sentry_value_decref(sentry_value_t value);

// Makes a breadcrumb.
sentry_value_t sentry_value_new_breadcrumb(const char* type, const char* message);

// Makes an event that carries a message.
sentry_value_t sentry_value_new_message_event(sentry_level_t level, const char* logger, const char* text);

// Makes options. The release and the environment are those of the variables SENTRY_RELEASE and SENTRY_ENVIRONMENT;
// without the latter, "production". They are given to sentry_init or freed.
sentry_options_t* sentry_options_new(void);
void sentry_options_free(sentry_options_t* opts);

// Sets where reports go, where they are stored meanwhile, which version of which program reports, and whether the
// library itself tells what it does (0: no; this one has nothing to tell). A text replaces the one set before, null
// removes it. A DSN that is none, or that names a host below "invalid", disables sending and nothing else.
void sentry_options_set_dsn(sentry_options_t* opts, const char* dsn);
void sentry_options_set_database_path(sentry_options_t* opts, const char* path);
void sentry_options_set_release(sentry_options_t* opts, const char* release);
void sentry_options_set_debug(sentry_options_t* opts, int debug);

// Starts a run and takes the options over: makes the database folder, from then on writes a report when the process
// crashes, and sends what earlier runs have left. A run that is under way is closed first. Returns 0; 1 when options is
// null or there is no memory, and then nothing runs.
int sentry_init(sentry_options_t* options);

// Ends the run, after two seconds at most for what is not sent yet, and for what runs have left that ended meanwhile.
// Returns how many reports of this run are left in the database folder; when none is, nothing is left of it in there.
int sentry_close(void);

// Keeps a breadcrumb for the events to come: the last 100 of them. Without a run, drops it. Takes the value over.
void sentry_add_breadcrumb(sentry_value_t breadcrumb);

// Sends an event, together with the breadcrumbs there are, from another thread. Takes the value over. Returns the
// event's new id; the nil id without a run or when the value is no event.
sentry_uuid_t sentry_capture_event(sentry_value_t event);

#ifdef __cplusplus
}
#endif
