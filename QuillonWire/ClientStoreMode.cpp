#include "QuillonWire/ClientStoreMode.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/SystemError.hpp"

namespace quillon::wire {
namespace {

namespace fs = std::filesystem;

std::string failed(std::string_view what, const std::string& path, int error) {
  return base::systemError(std::string(what) + " " + path, error);
}

// Closes the descriptor and removes the half-written file unless the write went through.
class TempFile {
 public:
  TempFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
  ~TempFile() {
    fd_.reset();
    if (!kept_) ::unlink(path_.c_str());
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  int fd() const { return fd_.get(); }
  const std::string& path() const { return path_; }
  // The close's own result: a failed write may show only there.
  int close() { return ::close(fd_.release()); }
  void keep() { kept_ = true; }

 private:
  base::Fd fd_;
  std::string path_;
  bool kept_ = false;
};

}  // namespace

std::optional<std::string> ClientStoreMode::write(std::span<const std::uint8_t> data, const std::string& toFile) {
  const fs::path target(toFile);
  if (target.filename().empty()) return "write " + toFile + ": not a file name";
  const fs::path folderPath = target.has_parent_path() ? target.parent_path() : fs::path(".");

  // mkostemp creates the file with O_EXCL and mode 0600, so it is private from its first moment.
  std::string pattern = (folderPath / ("." + target.filename().string() + ".XXXXXX")).string();
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return failed("write", toFile, errno);
  TempFile temp(fd, std::string(name.data()));

  if (::fchmod(temp.fd(), file) != 0) return failed("write", toFile, errno);
  if (!base::writeAll(temp.fd(), std::string_view(reinterpret_cast<const char*>(data.data()), data.size())))
    return failed("write", toFile, errno);
  if (::fsync(temp.fd()) != 0) return failed("write", toFile, errno);
  if (temp.close() != 0) return failed("write", toFile, errno);
  if (::rename(temp.path().c_str(), toFile.c_str()) != 0) return failed("write", toFile, errno);
  temp.keep();

  // Make the rename itself durable; the data is already safe, so a failure here is not reported.
  const base::Fd folderFd(::open(folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folderFd.get() >= 0) ::fsync(folderFd.get());
  return std::nullopt;
}

}  // namespace quillon::wire
