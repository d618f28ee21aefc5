// SPDX-License-Identifier: BSD-3-Clause
// Preloaded into a program: runs its main() again and again, each time in a process of its own in
// which another allocation fails, until none is left that could.
//
// What the C library, the loader, the OpenMP runtime and the BLAS allocate is theirs and never
// fails.  A run passes when the process ends by itself with status 0 and nothing on standard error,
// or with status 1 or 2 and one line there.  The exit status is the number of runs that do not, at
// most 100, or 101 when nothing was tested.
#include <dlfcn.h>
#include <link.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
}

namespace {

struct Range {
  std::uintptr_t begin, end;
};
Range foreign[64];
int foreign_count = 0;
std::atomic<int> seen{0}, chosen{-1};  // -1: not counting
int told = -1;                         // where the parent hears of the failure

int note_foreign(dl_phdr_info* info, std::size_t, void*) {
  const char* of_others[] = {"/libc.so", "/ld-linux", "/libgomp", "/libomp", "openblas"};
  const auto named = [&](const char* part) {
    return std::strstr(info->dlpi_name, part) != nullptr;
  };
  if (!std::any_of(std::begin(of_others), std::end(of_others), named)) return 0;
  for (int k = 0; k < info->dlpi_phnum && foreign_count < 64; ++k) {
    const ElfW(Phdr)& part = info->dlpi_phdr[k];
    if (part.p_type == PT_LOAD)
      foreign[foreign_count++] = {info->dlpi_addr + part.p_vaddr,
                                  info->dlpi_addr + part.p_vaddr + part.p_memsz};
  }
  return 0;
}

bool fails(const void* caller) {
  if (chosen.load() < 0) return false;
  const auto at = reinterpret_cast<std::uintptr_t>(caller);
  for (int k = 0; k < foreign_count; ++k)
    if (at >= foreign[k].begin && at < foreign[k].end) return false;
  if (++seen != chosen.load()) return false;
  const char word = 1;
  if (write(told, &word, 1) != 1) std::abort();
  errno = ENOMEM;
  return true;
}

using Main = int (*)(int, char**, char**);
Main program = nullptr;

struct Run {
  bool tested = true;  ///< an allocation failed
  bool good = true;
  char text[2000] = "";
};

Run run_with_failure(int k, int argc, char** argv, char** environment) {
  Run run;
  int messages[2], failure[2];
  if (pipe(messages) != 0 || pipe(failure) != 0) std::abort();
  const pid_t child = fork();
  if (child == 0) {
    dup2(messages[1], STDERR_FILENO);
    told = failure[1];
    seen = 0;
    chosen = k;
    const int status = program(argc, argv, environment);
    chosen = -1;
    std::exit(status);
  }
  close(messages[1]);
  close(failure[1]);
  std::size_t length = 0;
  for (ssize_t got = 1; got > 0 && length + 1 < sizeof run.text; length += got > 0 ? got : 0)
    got = read(messages[0], run.text + length, sizeof run.text - 1 - length);
  run.text[length] = '\0';
  char word = 0;
  run.tested = read(failure[0], &word, 1) == 1;
  close(messages[0]);
  close(failure[0]);
  int status = 0;
  waitpid(child, &status, 0);
  const auto lines = std::count(run.text, run.text + length, '\n');
  run.good =
      WIFEXITED(status) && ((WEXITSTATUS(status) == 0 && length == 0) ||
                            ((WEXITSTATUS(status) == 1 || WEXITSTATUS(status) == 2) && lines == 1));
  return run;
}

int run_with_every_failure(int argc, char** argv, char** environment) {
  dl_iterate_phdr(note_foreign, nullptr);
  int bad = 0;
  for (int k = 1;; ++k) {
    const Run run = run_with_failure(k, argc, argv, environment);
    if (!run.good && ++bad <= 10) std::fprintf(stderr, "allocation %d: %s\n", k, run.text);
    if (!run.tested) {
      std::fprintf(stderr, "%d allocations, %d of their failures not told\n", k - 1, bad);
      return k == 1 ? 101 : std::min(bad, 100);
    }
  }
}

}  // namespace

extern "C" {
void* malloc(std::size_t bytes) {
  return fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(bytes);
}
void* calloc(std::size_t count, std::size_t size) {
  return fails(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t bytes) {
  return fails(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, bytes);
}

// The way into every program of the C library.
__attribute__((visibility("default"))) int __libc_start_main(Main main, int argc, char** argv,
                                                             void (*init)(), void (*fini)(),
                                                             void (*loader)(), void* stack) {
  using Start = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
  const auto next = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
  program = main;
  return next(run_with_every_failure, argc, argv, init, fini, loader, stack);
}
}
