#pragma once

/// Other programs run by a test: what they print and how they end.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace qz_test {

/// An empty directory that is gone, with all it holds, at the end of the test.
class TempDirectory {
 public:
  TempDirectory() : path_((std::filesystem::temp_directory_path() / "qz_test_XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary directory");
  }
  ~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file and returns its path.
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
  }
  std::string read(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::string path_;
};

struct Outcome {
  /// Exit status, or minus the signal that ended the process.
  int status;
  std::string out;
  std::string err;
};

/// A program that runs beside the test.
class Process {
 public:
  /// Starts `arguments` (the program first) in `directory`. Standard output and error go to files,
  /// so neither is a terminal; with `terminal` at 0 or more, standard error goes to that open file
  /// instead, and `err` of the outcome stays empty.
  Process(const std::vector<std::string>& arguments, const std::string& directory,
          int terminal = -1) {
    const std::string out = capture_.file("out");
    const std::string err = capture_.file("err");
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    child_ = fork();
    if (child_ < 0) throw std::runtime_error("cannot start a process");
    if (child_ > 0) return;
    const int out_file = open(out.c_str(), O_WRONLY | O_CREAT, 0600);
    const int err_file = terminal >= 0 ? terminal : open(err.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(out_file, STDOUT_FILENO);
    dup2(err_file, STDERR_FILENO);
    if (chdir(directory.c_str()) == 0) execv(argv[0], argv.data());
    _exit(127);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void send(int signal) const { kill(child_, signal); }
  /// Waits for the end; once only.
  Outcome wait() const {
    int status = 0;
    waitpid(child_, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), capture_.read("out"),
            capture_.read("err")};
  }

 private:
  TempDirectory capture_;
  pid_t child_ = -1;
};

inline Outcome run_process(const std::vector<std::string>& arguments, const std::string& directory,
                           int terminal = -1) {
  return Process(arguments, directory, terminal).wait();
}

}  // namespace qz_test
