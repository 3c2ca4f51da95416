#include "tests/cli-page/Browser.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

namespace tarsil::cli {
namespace {

using Json = nlohmann::json;

/// The browser reads its commands from the one and answers on the other.
constexpr int commandsOfBrowser = 3;
constexpr int answersOfBrowser = 4;

/// Its ends are above those two.
std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  for (int& end : ends) {
    const int higher = fcntl(end, F_DUPFD_CLOEXEC, 10);
    close(end);
    end = higher;
  }
  return ends;
}

std::string decoded(const std::string& base64) {
  static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char digit : base64.substr(0, base64.find('='))) {
    bits = bits << 6 | static_cast<unsigned>(digits.find(digit));
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xFF);
  }
  return bytes;
}

}  // namespace

bool Browser::isInstalled() {
  return std::system("command -v chromium >/dev/null") == 0;
}

Browser::Browser() {
  const auto commands = makePipe();
  const auto answers = makePipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, commands[0], commandsOfBrowser);
  posix_spawn_file_actions_adddup2(&actions, answers[1], answersOfBrowser);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<std::string> words{"chromium",
                                 "--headless",
                                 "--no-sandbox",
                                 "--disable-gpu",
                                 "--no-first-run",
                                 "--disable-background-networking",
                                 "--disable-component-update",
                                 "--disable-sync",
                                 "--disable-dev-shm-usage",
                                 "--remote-debugging-pipe",
                                 "--user-data-dir=" + (folder_ / "browser").string()};
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const int error = posix_spawnp(&process_, "chromium", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(commands[0]);
  close(answers[1]);
  commands_ = commands[1];
  answers_ = answers[0];
  if (error != 0) throw std::runtime_error("cannot start chromium");
  std::signal(SIGPIPE, SIG_IGN);

  const Json page = call("Target.createTarget", {{"url", "about:blank"}});
  session_ = call("Target.attachToTarget", {{"targetId", page["targetId"]}, {"flatten", true}})["sessionId"];
}

Browser::~Browser() {
  close(commands_);
  close(answers_);
  // It ends with its pipe; its files go after it.
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
}

Json Browser::call(const std::string& method, const Json& parameters) {
  Json command{{"id", ++calls_}, {"method", method}, {"params", parameters}};
  if (!session_.empty()) command["sessionId"] = session_;
  const std::string text = command.dump() + '\0';
  if (write(commands_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    throw std::runtime_error("the browser is gone");
  for (Json said = read();; said = read()) {
    if (said.value("id", 0) != calls_) continue;
    if (!said.contains("result")) throw std::runtime_error(method + ": " + said.dump());
    return said["result"];
  }
}

Json Browser::read() {
  std::size_t end = unread_.find('\0');
  for (; end == std::string::npos; end = unread_.find('\0')) {
    std::array<char, 65536> buffer{};
    const ssize_t count = ::read(answers_, buffer.data(), buffer.size());
    if (count <= 0) throw std::runtime_error("the browser is gone");
    unread_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  Json said = Json::parse(unread_.substr(0, end));
  unread_.erase(0, end + 1);
  if (said.value("method", "") == "Page.loadEventFired") hasLoaded_ = true;
  return said;
}

// The page before may still be loading, too, and its world ends with it.
void Browser::go(const std::string& address) {
  call("Page.enable", Json::object());
  call("Page.navigate", {{"url", address}});
  do {
    while (!hasLoaded_) read();
    hasLoaded_ = false;
  } while (valueOf("location.href") != address);
}

void Browser::setWindow(int width, int height, bool isDark) {
  call("Emulation.setDeviceMetricsOverride",
       {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", false}});
  const Json scheme{{"name", "prefers-color-scheme"}, {"value", isDark ? "dark" : "light"}};
  call("Emulation.setEmulatedMedia", {{"features", Json::array({scheme})}});
}

std::string Browser::valueOf(const std::string& expression) {
  const Json result =
      call("Runtime.evaluate", {{"expression", expression}, {"awaitPromise", true}})["result"];
  const Json value = result.value("value", Json());
  return value.is_string() ? value.get<std::string>() : value.dump();
}

void Browser::waitFor(const std::string& expression) {
  const std::string seen =
      valueOf("new Promise(done => { const begin = Date.now(); const look = () => (" + expression +
              ") ? done('it holds') : Date.now() - begin > 60000 ? done(document.body.innerText) "
              ": setTimeout(look, 20); look(); })");
  EXPECT_EQ(seen, "it holds") << expression;
}

void Browser::keepPicture(const std::string& name) {
  const std::filesystem::path folder = TARSIL_PICTURES;
  std::filesystem::create_directories(folder);
  std::ofstream(folder / name, std::ios::binary)
      << decoded(call("Page.captureScreenshot", {{"format", "png"}})["data"].get<std::string>());
}

}  // namespace tarsil::cli
