// Files and pipes for tests of the command-line program.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace morva_test {

// A file with some content, removed at the end.
class TempFile {
 public:
  explicit TempFile(std::string_view content = {}) {
    path_ = testing::TempDir() + "morva-cli-XXXXXX";
    fd_ = ::mkstemp(path_.data());
    if (fd_ < 0) std::abort();
    for (size_t done = 0; done < content.size();) {
      const ssize_t written = ::write(fd_, content.data() + done, content.size() - done);
      if (written <= 0) std::abort();
      done += static_cast<size_t>(written);
    }
  }
  ~TempFile() {
    ::close(fd_);
    ::unlink(path_.c_str());
  }
  TempFile(const TempFile &) = delete;
  TempFile &operator=(const TempFile &) = delete;

  const std::string &path() const { return path_; }
  int fd() const { return fd_; }

  std::string content() const {
    std::string text;
    char piece[4096];
    off_t at = 0;
    for (ssize_t got; (got = ::pread(fd_, piece, sizeof piece, at)) > 0; at += got) {
      text.append(piece, static_cast<size_t>(got));
    }
    return text;
  }

 private:
  std::string path_;
  int fd_;
};

// A pipe that a thread fills, piece after piece; path() can be opened once for reading.
class FedPipe {
 public:
  explicit FedPipe(std::vector<std::string> pieces) {
    int ends[2];
    if (::pipe(ends) != 0) std::abort();
    readEnd_ = ends[0];
    feeder_ = std::thread([writeEnd = ends[1], pieces = std::move(pieces)] {
      for (const std::string &piece : pieces) {
        if (::write(writeEnd, piece.data(), piece.size()) < 0) break;
      }
      ::close(writeEnd);
    });
  }
  ~FedPipe() {
    feeder_.join();
    ::close(readEnd_);
  }
  FedPipe(const FedPipe &) = delete;
  FedPipe &operator=(const FedPipe &) = delete;

  std::string path() const { return "/dev/fd/" + std::to_string(readEnd_); }

 private:
  int readEnd_;
  std::thread feeder_;
};

}  // namespace morva_test
