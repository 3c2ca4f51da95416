#include "tarsil/support/process.hpp"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace tarsil {
namespace {

ProcessHooks& currentHooks() {
  // Never destroyed: worker threads may print until the process is gone.
  static ProcessHooks& hooks = *new ProcessHooks;
  return hooks;
}

std::atomic<bool> processEnds = false;

// One call, so that lines of several threads never mix.
void writeLine(std::FILE* stream, std::string_view text) {
  std::string line(text);
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stream);
  std::fflush(stream);
}

}  // namespace

ProcessHooks exchangeProcessHooks(ProcessHooks hooks) {
  return std::exchange(currentHooks(), std::move(hooks));
}

ScopedProcessHooks::ScopedProcessHooks(ProcessHooks hooks) : before_(currentHooks()) {
  ProcessHooks& current = currentHooks();
  if (hooks.fatal) current.fatal = std::move(hooks.fatal);
  if (hooks.neverReturn) current.neverReturn = std::move(hooks.neverReturn);
  if (hooks.print) current.print = std::move(hooks.print);
  if (hooks.atExit) current.atExit = std::move(hooks.atExit);
}

ScopedProcessHooks::~ScopedProcessHooks() {
  currentHooks() = std::move(before_);
}

void fatalError(std::string_view reason) {
  if (currentHooks().fatal) currentHooks().fatal(reason);
  writeLine(stderr, "tarsil: fatal error: " + std::string(reason));
  std::abort();
}

void neverReturn() {
  if (currentHooks().neverReturn) currentHooks().neverReturn();
  for (;;) pause();
}

int atExit(void (*handler)()) {
  if (currentHooks().atExit) return currentHooks().atExit(handler);
  return std::atexit(handler);
}

void beginProcessEnd() {
  processEnds = true;
}

bool isProcessEnding() {
  return processEnds;
}

void printLine(std::string_view text, PrintedText kind) {
  if (currentHooks().print) return currentHooks().print(text, kind);
  writeLine(stdout, text);
}

}  // namespace tarsil
