/*
 * drop_ward PROGRAM [ARGUMENT...]
 *
 * Runs PROGRAM with the integrity protection lifted: it may change the
 * immutable and append-only inode flags (CAP_LINUX_IMMUTABLE) and, through
 * them, the items the library protects. The launcher
 *   - refuses to run PROGRAM when the capability is no longer in its bounding
 *     set, since PROGRAM would then run protected while its caller believes
 *     otherwise (exit 126 with a message);
 *   - raises the capability into the inheritable and ambient sets when it
 *     holds it, so that PROGRAM keeps it across exec even when it is not run
 *     as root, and passes it on to what PROGRAM starts;
 *   - then executes PROGRAM with the arguments given (exit 127 when it
 *     cannot: missing, not executable).
 * The task runner removes CAP_LINUX_IMMUTABLE from the bounding set of every
 * program it starts directly; only programs started through this launcher
 * keep it.
 */
#include <errno.h>
#include <linux/capability.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

static int capabilityHeld(const struct __user_cap_data_struct *data, int cap) {
  return (data[cap / 32].permitted >> (cap % 32)) & 1;
}

/* Makes CAP_LINUX_IMMUTABLE inheritable and ambient; 0 or an errno. */
static int raiseAmbient(void) {
  struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  struct __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3];
  memset(data, 0, sizeof data);
  if (syscall(SYS_capget, &header, data) != 0) return errno;
  if (!capabilityHeld(data, CAP_LINUX_IMMUTABLE)) return 0;
  data[CAP_LINUX_IMMUTABLE / 32].inheritable |= 1u << (CAP_LINUX_IMMUTABLE % 32);
  if (syscall(SYS_capset, &header, data) != 0) return errno;
  if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_LINUX_IMMUTABLE, 0, 0) != 0) return errno;
  return 0;
}

int main(int argc, char **argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: drop_ward PROGRAM [ARGUMENT...]\n");
    return 2;
  }
  if (prctl(PR_CAPBSET_READ, CAP_LINUX_IMMUTABLE, 0, 0, 0) != 1) {
    fprintf(stderr, "drop_ward: cannot lift the protection for '%s': CAP_LINUX_IMMUTABLE is not "
            "in the bounding set\n", argv[1]);
    return 126;
  }
  int error = raiseAmbient();
  if (error != 0) {
    fprintf(stderr, "drop_ward: cannot raise CAP_LINUX_IMMUTABLE for '%s': %s\n", argv[1],
            strerror(error));
    return 126;
  }
  execv(argv[1], argv + 1);
  fprintf(stderr, "drop_ward: cannot run '%s': %s\n", argv[1], strerror(errno));
  return 127;
}
