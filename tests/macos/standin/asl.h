// A stand-in for the system's header: the part of the interface that this project calls. What are
// macros there are enumerators here, where the comparison with other descriptions can see them.
#pragma once

#include <stdint.h>

extern "C" {

typedef struct __asl_object_s* asl_object_t;

enum { ASL_TYPE_MSG = 0 };
enum { ASL_OPT_STDERR = 0x00000001 };
enum { ASL_LEVEL_ERR = 3, ASL_LEVEL_WARNING = 4, ASL_LEVEL_INFO = 6, ASL_LEVEL_DEBUG = 7 };
#define ASL_FILTER_MASK_UPTO(level) ((1 << ((level) + 1)) - 1)
#define ASL_KEY_SENDER "Sender"

asl_object_t asl_open(const char* ident, const char* facility, uint32_t opts)
    __attribute__((deprecated));
int asl_set_filter(asl_object_t client, int f) __attribute__((deprecated));
asl_object_t asl_new(uint32_t type) __attribute__((deprecated));
int asl_set(asl_object_t obj, const char* key, const char* value) __attribute__((deprecated));
int asl_log(asl_object_t client, asl_object_t msg, int level, const char* format, ...)
    __attribute__((__format__(__printf__, 4, 5), deprecated));
void asl_release(asl_object_t obj) __attribute__((deprecated));
}
