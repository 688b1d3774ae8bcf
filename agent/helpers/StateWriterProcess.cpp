#include "agent/helpers/StateWriterProcess.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "agent/base/FileDescriptor.h"
#include "agent/helpers/FileMessage.h"
#include "agent/helpers/StateRecords.h"
#include "agent/process/Files.h"
#include "agent/process/Privileges.h"
#include "agent/process/Sandbox.h"

namespace pimbsr::agent {

namespace {

using Clock = std::chrono::steady_clock;

/// Time from the first write to the sync that makes it last.
constexpr std::chrono::milliseconds syncDelay{500};
/// Time for which a former writer may go on with what its agent has left.
constexpr std::chrono::milliseconds lockPatience{2000};
constexpr std::chrono::milliseconds lockRetry{10};
/// Time between the death of a process that writes and the next one; between writers at first.
constexpr std::chrono::milliseconds restartDelay{500};
/// The same between writers at most. One that lived for longer begins with restartDelay again.
constexpr std::chrono::milliseconds maxRestartDelay{60000};
/// The longest text of a replace, in bytes.
constexpr std::size_t maxReplace = std::size_t{256} << 20;

/// Returns whether there still is an agent that takes it.
bool report(int socket, StateReport const& what) {
  return send(socket, &what, sizeof what, MSG_NOSIGNAL) == sizeof what;
}

/// Calls something of the system; throws std::system_error for a result below 0.
int check(int result, char const* what) {
  return result >= 0 ? result : throw std::system_error(errno, std::generic_category(), what);
}

// Files -------------------------------------------------------------------------------------------------

/// One file, which grows at its end and is replaced as a whole.
class StateFile {
 public:
  explicit StateFile(std::string path) : path_(std::move(path)) {}

  /// Each throws std::system_error, and leaves the file as it was then.
  void append(std::string_view text);
  void replace(std::string const& text);
  void sync();

  std::optional<Clock::time_point> unsyncedSince() const { return unsyncedSince_; }
  /// The number of the last record that was tried.
  U64 number() const { return number_; }
  void numberIs(U64 number) { number_ = number; }

 private:
  void open();

  std::string path_;
  FileDescriptor file_;
  std::optional<Clock::time_point> unsyncedSince_;
  U64 number_ = 0;
};

void StateFile::open() {
  int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  FileDescriptor file(check(::open(path_.c_str(), flags, 0640), "open"));
  struct stat status {};
  check(fstat(file.get(), &status), "stat");
  if (!S_ISREG(status.st_mode)) throw std::system_error(EINVAL, std::generic_category(), "no regular file");
  file_ = std::move(file);
}

/// A part of a text would be damage: it is taken back.
void StateFile::append(std::string_view text) {
  if (!file_) open();
  off_t size = lseek(file_.get(), 0, SEEK_END);
  while (!text.empty()) {
    ssize_t written = write(file_.get(), text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      int error = written < 0 ? errno : ENOSPC;
      if (ftruncate(file_.get(), size) < 0) file_ = FileDescriptor();
      throw std::system_error(error, std::generic_category(), "write");
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  if (!unsyncedSince_) unsyncedSince_ = Clock::now();
}

void StateFile::replace(std::string const& text) {
  replaceFile(path_, text);
  file_ = FileDescriptor();
  unsyncedSince_.reset();
}

void StateFile::sync() {
  unsyncedSince_.reset();
  check(fdatasync(file_.get()), "sync");
}

// Writing -----------------------------------------------------------------------------------------------

class StateWork {
 public:
  StateWork(int socket, StateWriterOptions const& options) : socket_(socket), folder_(options.folder) {
    for (std::string const& name : options.files) files_.emplace_back(options.folder + '/' + name);
  }

  /// Serves until the other end has closed the socket.
  void serve() {
    while (true) {
      pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
      if (poll(&waiting, 1, waitTime()) > 0 && !receive()) break;
      syncDue(Clock::now());
    }
    syncDue(Clock::time_point::max());
  }

 private:
  bool receive();
  void write(StateRecord const& record, std::string_view text, int file);
  void syncFolder() const;
  void syncDue(Clock::time_point now);
  int waitTime() const;
  /// Does something with a file, and reports if it can't be done. Returns whether it could.
  template <class Act>
  bool attempt(U32 file, Act const& act);

  int socket_;
  std::string folder_;
  std::vector<StateFile> files_;
  std::array<char, sizeof(StateRecord) + maxStateAppend> buffer_;
};

template <class Act>
bool StateWork::attempt(U32 file, Act const& act) {
  try {
    act(files_[file]);
    return true;
  } catch (std::system_error const& error) {
    report(socket_, {.kind = StateReport::Kind::failed,
                     .file = file,
                     .error = error.code().value(),
                     .number = files_[file].number()});
    return false;
  }
}

std::string textOf(int file) {
  struct stat status {};
  check(fstat(file, &status), "stat");
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  if (text.size() > maxReplace) throw std::system_error(EFBIG, std::generic_category(), "replace");
  std::size_t size = 0;
  while (size < text.size()) {
    ssize_t got = pread(file, text.data() + size, text.size() - size, static_cast<off_t>(size));
    if (got <= 0) throw std::system_error(got < 0 ? errno : EIO, std::generic_category(), "read");
    size += static_cast<std::size_t>(got);
  }
  return text;
}

/// The name of a file that was replaced is in the folder.
void StateWork::syncFolder() const {
  FileDescriptor folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) fsync(folder.get());
}

void StateWork::write(StateRecord const& record, std::string_view text, int file) {
  if (record.file >= files_.size()) return;
  files_[record.file].numberIs(record.number);
  if (record.kind == StateRecord::Kind::append) {
    attempt(record.file, [&](StateFile& state) { state.append(text); });
  } else if (attempt(record.file, [&](StateFile& state) { state.replace(textOf(file)); })) {
    syncFolder();
    report(socket_, {.kind = StateReport::Kind::replaced, .file = record.file, .number = record.number});
  }
}

/// Takes one record. Returns false at the end of the connection.
bool StateWork::receive() {
  FileMessage message(buffer_.data(), buffer_.size());
  ssize_t got = message.receive(socket_);
  if (got <= 0) return false;
  FileDescriptor file(message.file());
  StateRecord record;
  auto size = static_cast<std::size_t>(got);
  if (size < sizeof record) return true;
  std::memcpy(&record, buffer_.data(), sizeof record);
  write(record, {buffer_.data() + sizeof record, size - sizeof record}, file.get());
  return true;
}

void StateWork::syncDue(Clock::time_point now) {
  for (std::size_t i = 0; i < files_.size(); ++i) {
    auto since = files_[i].unsyncedSince();
    auto file = static_cast<U32>(i);
    if (!since || now - *since < syncDelay) continue;
    if (attempt(file, [](StateFile& state) { state.sync(); }))
      report(socket_, {.kind = StateReport::Kind::synced, .file = file, .number = files_[i].number()});
  }
}

/// Milliseconds until a sync is due; below 0 for never.
int StateWork::waitTime() const {
  int least = -1;
  for (StateFile const& file : files_) {
    if (!file.unsyncedSince()) continue;
    auto left = *file.unsyncedSince() + syncDelay - Clock::now();
    int wait = static_cast<int>(
        std::max<long>(0, std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1));
    if (least < 0 || wait < least) least = wait;
  }
  return least;
}

// Processes ---------------------------------------------------------------------------------------------

/// Whether the agent whose process id a lock's file has still lives; true for a file without one.
bool isAgentAlive(int lock) {
  std::array<char, 16> text{};
  if (pread(lock, text.data(), text.size() - 1, 0) <= 0) return true;
  pid_t agent = std::atoi(text.data());
  return agent <= 0 || kill(agent, 0) == 0 || errno != ESRCH;
}

/// On a full disk the name of the former agent stays, which is none, or one that has ended.
void nameAgent(int lock, pid_t agent) {
  std::string text = fmt::format("{:<14}\n", agent);
  [[maybe_unused]] ssize_t written = pwrite(lock, text.data(), text.size(), 0);
}

/// Whether the agent at the other end lives for so long.
bool isAgentThereFor(int socket, std::chrono::milliseconds time) {
  pollfd waiting{.fd = socket, .events = 0, .revents = 0};
  return poll(&waiting, 1, static_cast<int>(time.count())) == 0;
}

/// Waits for a lock. Throws std::system_error with EWOULDBLOCK if the writer of a living agent holds it for
/// longer than lockPatience. That of a dead one may wait for its disk, for as long as that takes. Returns
/// false if the agent at the other end has gone.
bool awaitLock(int lock, int socket, pid_t agent) {
  auto end = Clock::now() + lockPatience;
  bool isReported = false;
  while (flock(lock, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) check(-1, "lock");
    if (Clock::now() >= end && isAgentAlive(lock))
      throw std::system_error(EWOULDBLOCK, std::generic_category(), "lock");
    if (Clock::now() >= end && !std::exchange(isReported, true))
      report(socket, {.kind = StateReport::Kind::waiting});
    if (!isAgentThereFor(socket, lockRetry)) return false;
  }
  nameAgent(lock, agent);
  return true;
}

/// A file of the directory that is locked against other writers; nothing if the agent has gone meanwhile.
/// Throws std::system_error. The lock of the directory itself is that of a control socket in it.
FileDescriptor lockFolder(std::string const& path, int socket, pid_t agent) {
  std::filesystem::create_directories(path);
  std::string file = path + "/state.lock";
  FileDescriptor lock(check(open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0640), "open"));
  return awaitLock(lock.get(), socket, agent) ? std::move(lock) : FileDescriptor();
}

[[noreturn]] void work(int socket, StateWriterOptions const& options) noexcept {
  if (options.sandbox) {
    dropPrivileges(RawSockets::none);
    enterSandbox();
  }
  StateWork(socket, options).serve();
  _exit(0);
}

/// Starts the process that writes, and waits for its end. Returns whether it has done all. No fork handler
/// runs: that of libuv would close descriptors by their numbers, which mean other files here.
bool runWork(int socket, StateWriterOptions const& options) {
  pid_t child = _Fork();
  if (child == 0) work(socket, options);
  int status = -1;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status == 0;
}

/// What every writer of an agent has.
struct WriterTask {
  int socket = -1;
  StateWriterOptions const& options;
  pid_t agent = -1;
};

/// The writer: locks the directory, reports that as `start`, and starts the process that writes again and
/// again until all is done.
void keepWriting(WriterTask const& task, StateReport::Kind start) {
  FileDescriptor lock;
  try {
    lock = lockFolder(task.options.folder, task.socket, task.agent);
  } catch (std::system_error const& error) {
    report(task.socket, {.kind = StateReport::Kind::unusable, .error = error.code().value()});
    return;
  }
  if (!lock) return;
  report(task.socket, {.kind = start});
  while (!runWork(task.socket, task.options)) {
    std::this_thread::sleep_for(restartDelay);
    if (!report(task.socket, {.kind = StateReport::Kind::restarted})) return;
  }
}

/// Waits for the end of all processes below this one: the one that writes may outlive the one that started
/// it. Returns whether the last of them has done all.
bool awaitWriters() {
  int last = -1;
  while (true) {
    int status = 0;
    if (waitpid(-1, &status, 0) > 0) {
      last = status;
    } else if (errno != EINTR) {
      return last == 0;
    }
  }
}

/// Returns whether all is done.
bool runWriter(WriterTask const& task, StateReport::Kind start) {
  pid_t child = _Fork();
  if (child == 0) {
    prctl(PR_SET_NAME, "pimbsr-state");
    keepWriting(task, start);
    _exit(0);
  }
  return child > 0 && awaitWriters();
}

}  // namespace

/// The last text of the agent is written even if a writer died just before: one more writer gets it.
void serveState(int socket, StateWriterOptions const& options) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  WriterTask const task{.socket = socket, .options = options, .agent = getppid()};
  auto delay = restartDelay;
  auto begin = Clock::now();
  bool hasAgent = true;
  for (auto start = StateReport::Kind::ready; !runWriter(task, start) && hasAgent;) {
    if (Clock::now() - begin > maxRestartDelay) delay = restartDelay;
    hasAgent = isAgentThereFor(socket, delay);
    delay = std::min(2 * delay, maxRestartDelay);
    begin = Clock::now();
    start = StateReport::Kind::restarted;
  }
}

}  // namespace pimbsr::agent
