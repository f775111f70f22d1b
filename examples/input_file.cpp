#include "input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace echo {

// O_NONBLOCK: opening a pipe does not wait for a writer; reading a regular file is as ever.
InputFile::InputFile(const std::string& path)
    : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat status = {};
  if (m_descriptor == -1 || fstat(m_descriptor, &status) != 0) {
    const int error = errno;
    if (m_descriptor != -1) {
      close(m_descriptor);
    }
    throw std::system_error(error, std::generic_category(), "cannot open '" + path + "'");
  }
  if (!S_ISREG(status.st_mode)) {
    close(m_descriptor);
    throw std::runtime_error("'" + path + "' is not a regular file");
  }
  m_size = static_cast<std::uint64_t>(status.st_size);
}

InputFile::~InputFile() { close(m_descriptor); }

bool InputFile::Read(std::uint64_t offset, char* out, std::size_t length) const noexcept {
  while (length > 0) {
    const ssize_t taken = pread(m_descriptor, out, length, static_cast<off_t>(offset));
    if (taken < 0 && errno == EINTR) {
      continue;
    }
    if (taken <= 0) {
      return false;
    }
    offset += static_cast<std::uint64_t>(taken);
    out += taken;
    length -= static_cast<std::size_t>(taken);
  }
  return true;
}

}  // namespace echo
