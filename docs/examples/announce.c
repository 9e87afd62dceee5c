/* What a device does about one disk: it says that the disk is there, says so again and again, and
 * says at the end, when it gets SIGTERM or SIGINT, that it is gone. Everything else is in
 * ../protocol.md.
 *
 *   cc -o announce announce.c
 *   ./announce 02:00:00:00:00:01 192.0.2.10 1234-ABCD "USB Disk"
 */
#define _POSIX_C_SOURCE 200809L
#include <arpa/inet.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

static int sender;
static struct sockaddr_in group = {.sin_family = AF_INET};

/* The words are MAC, ADDRESS, UUID and LABEL. */
static void announce(const char* event, char** words) {
  char text[1472]; /* as much as fits into one packet on Ethernet */
  int size = snprintf(text, sizeof text, "event:%s;mac:%s;ip:%s;uuid:%s;label:%s", event, words[0],
                      words[1], words[2], words[3]);
  if (size < 0 || (size_t)size >= sizeof text) {
    fprintf(stderr, "announce: too long\n");
    exit(1);
  }
  /* The text alone: the zero byte behind it would belong to the label. A failure is not the end,
   * for the cable may be out, and back the next time. */
  if (sendto(sender, text, (size_t)size, 0, (struct sockaddr*)&group, sizeof group) < 0) {
    perror("announce");
  }
}

int main(int count, char** words) {
  struct timespec pause = {.tv_sec = count > 5 ? atoi(words[5]) : 30};
  struct in_addr own;
  sigset_t endings;
  if (count < 5 || pause.tv_sec < 1 || inet_pton(AF_INET, words[2], &own) != 1) {
    fprintf(stderr, "usage: announce MAC ADDRESS UUID LABEL [SECONDS]\n");
    return 2;
  }
  group.sin_port = htons(5077);
  inet_pton(AF_INET, "239.255.77.1", &group.sin_addr);

  /* A device often has no route to groups, so the interface is chosen: the one with the address
   * that is announced. With several interfaces, have a socket for each and announce its own address
   * there. */
  sender = socket(AF_INET, SOCK_DGRAM, 0);
  if (sender < 0 || setsockopt(sender, IPPROTO_IP, IP_MULTICAST_IF, &own, sizeof own) != 0) {
    perror("announce");
    return 1;
  }

  /* The end is waited for together with the time of the next announcement. */
  sigemptyset(&endings);
  sigaddset(&endings, SIGINT);
  sigaddset(&endings, SIGTERM);
  sigprocmask(SIG_BLOCK, &endings, NULL);

  /* Whoever knows the disk by another address forgets it. Twice, as datagrams get lost. */
  for (int i = 0; i < 2; ++i) {
    announce("disk_unmounted", words + 1);
    sleep(1);
  }
  announce("disk_mounted", words + 1); /* once, as desktops log it */
  while (sigtimedwait(&endings, NULL, &pause) < 0) {
    announce("disk_status", words + 1);
  }
  announce("disk_unmounted", words + 1);
  return 0;
}
