#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>

#include "app/data_folder_lock.h"
#include "platform/posix/posix_env.h"

namespace PIM {

// flock() locks belong to the open file, not to the process: a second
// open of the same file in this process is refused too, as another
// process would be.
struct DataFolderLock::Handle {
  int fd;
};

void DataFolderLock::Closer::operator()(Handle* handle) const {
  close(handle->fd);
  delete handle;
}

DataFolderLock::Result DataFolderLock::tryAcquire(std::string& error) {
  if (handle_) return Result::Acquired;
  const int fd = open(nativePath(path_).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    error = std::strerror(errno);
    return Result::Failed;
  }
  std::unique_ptr<Handle, Closer> handle(new Handle{fd});
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno == EWOULDBLOCK) return Result::Busy;
    error = std::strerror(errno);
    return Result::Failed;
  }
  handle_ = std::move(handle);
  return Result::Acquired;
}

}  // namespace PIM
