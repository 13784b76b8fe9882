// Runs a reference tool beside a benchmark: its output discarded, its exit
// status and the peak resident memory of the child kept.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <string>
#include <vector>

extern char** environ;

namespace NorvaneBench {

// The tool's exit status (-1 when it did not run or was killed); `peakMiB`, when
// given, is raised to the child's peak memory.
inline int RunTool(std::vector<std::string> args, double* peakMiB = nullptr) {
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  int status = -1;
  struct rusage usage {};
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) wait4(pid, &status, 0, &usage);
  posix_spawn_file_actions_destroy(&actions);
  if (peakMiB != nullptr) *peakMiB = std::max(*peakMiB, static_cast<double>(usage.ru_maxrss) / 1024);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace NorvaneBench
