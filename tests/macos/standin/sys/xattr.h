// A stand-in for the system's header: the part of the interface that this project calls. What are
// macros there are enumerators here, where the comparison with other descriptions can see them.
#pragma once

#include <sys/types.h>

extern "C" {

enum { XATTR_NOFOLLOW = 0x0001 };

ssize_t getxattr(const char* path, const char* name, void* value, size_t size, u_int32_t position,
                 int options);
ssize_t fgetxattr(int fd, const char* name, void* value, size_t size, u_int32_t position,
                  int options);
int setxattr(const char* path, const char* name, const void* value, size_t size, u_int32_t position,
             int options);
int fsetxattr(int fd, const char* name, const void* value, size_t size, u_int32_t position,
              int options);
}
