// What the system's header of this name has and the one here has not.
#pragma once

#include_next <sys/mount.h>

#include <stdint.h>

extern "C" {
struct statfs {
  uint32_t f_bsize;
  uint32_t f_flags;
  char f_fstypename[16];
  char f_mntonname[1024];
  char f_mntfromname[1024];
};
int getfsstat(struct statfs* buf, int bufsize, int mode);
int unmount(const char* target, int flags);
}
enum { MNT_WAIT = 1, MNT_NOWAIT = 2, MNT_LOCAL = 0x00001000 };
