#include "tools/javascript_worker/sandbox.h"

#include <errno.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>

namespace orla::javascript_worker {

bool forbidNewPrivileges() { return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0; }

bool enterSandbox() {
  scmp_filter_ctx filter = ::seccomp_init(SCMP_ACT_ALLOW);
  if (!filter) return false;
  // Every way to reach a file, a socket or another process, and every way to
  // change the file system. The engine keeps its memory, thread, clock,
  // signal and pipe calls.
  static constexpr std::array kDenied = {
      SCMP_SYS(open), SCMP_SYS(openat), SCMP_SYS(openat2), SCMP_SYS(creat), SCMP_SYS(open_by_handle_at),
      SCMP_SYS(name_to_handle_at), SCMP_SYS(socket), SCMP_SYS(socketpair), SCMP_SYS(connect), SCMP_SYS(bind),
      SCMP_SYS(listen), SCMP_SYS(accept), SCMP_SYS(accept4), SCMP_SYS(execve), SCMP_SYS(execveat),
      SCMP_SYS(fork), SCMP_SYS(vfork), SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev),
      SCMP_SYS(kill), SCMP_SYS(pidfd_open), SCMP_SYS(pidfd_getfd), SCMP_SYS(mkdir), SCMP_SYS(mkdirat),
      SCMP_SYS(mknod), SCMP_SYS(mknodat), SCMP_SYS(unlink), SCMP_SYS(unlinkat), SCMP_SYS(rename),
      SCMP_SYS(renameat), SCMP_SYS(renameat2), SCMP_SYS(link), SCMP_SYS(linkat), SCMP_SYS(symlink),
      SCMP_SYS(symlinkat), SCMP_SYS(truncate), SCMP_SYS(chmod), SCMP_SYS(fchmodat), SCMP_SYS(chown),
      SCMP_SYS(lchown), SCMP_SYS(fchownat), SCMP_SYS(mount), SCMP_SYS(umount2), SCMP_SYS(chroot),
      SCMP_SYS(io_uring_setup), SCMP_SYS(memfd_secret), SCMP_SYS(userfaultfd), SCMP_SYS(bpf),
  };
  // Every thread the engine has started gets the filter too.
  bool ok = ::seccomp_attr_set(filter, SCMP_FLTATR_CTL_TSYNC, 1) == 0;
  for (int call : kDenied) ok = ok && ::seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), call, 0) == 0;
  // A new thread shares this process and stays inside the filter; any other
  // clone would be a new process.
  ok = ok && ::seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1,
                                SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0)) == 0;
  // clone3 passes its flags in memory, where a filter cannot look; the C
  // library falls back to clone when it is missing.
  ok = ok && ::seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0) == 0;
  ok = ok && ::seccomp_load(filter) == 0;
  ::seccomp_release(filter);
  return ok;
}

}  // namespace orla::javascript_worker
