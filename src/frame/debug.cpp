// Debug output (a line to the system debugger) and the library's small log.
#include "log.h"

#include <windows.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

extern "C" void TOV_DebugOutput(const char *format, ...) noexcept {
  char line[1024];
  va_list args;
  va_start(args, format);
  // The legacy formatter reports -1 (or the full size, unterminated) when the
  // text does not fit; two bytes stay free for the newline and terminator.
  int n = _vsnprintf(line, sizeof line - 2, format ? format : "", args);
  va_end(args);
  if (n < 0 || n > static_cast<int>(sizeof line - 2)) n = sizeof line - 2;
  line[n] = '\n';
  line[n + 1] = '\0';
  OutputDebugStringA(line);
}

namespace tov {
namespace {

constexpr size_t kNameSize = 260;

struct Logger {
  char fileName[kNameSize];
  int fd;
  uint32_t levelMask;
  char programName[kNameSize];
};

// The one logger lives in static storage: creating it cannot fail, and it is
// never destroyed. g_logger stays null until the first log call.
Logger g_loggerStorage;
Logger *g_logger;

struct LevelWord {
  const char *word;
  uint32_t bits;
};

// Searched in this order; LogAll does not include LogCallTrace.
constexpr LevelWord kLevelWords[] = {
    {"LogAll", LogAll},
    {"LogCrit", LogCrit},
    {"LogErr", LogErr},
    {"LogWarn", LogWarn},
    {"LogDbg", LogDbg},
    {"LogInfo", LogInfo},
    {"LogCallTrace", LogCallTrace},
};

uint32_t parseLevels(const char *text) {
  uint32_t mask = LogCrit;
  for (const LevelWord &lw : kLevelWords) {
    const char *at = std::strstr(text, lw.word);
    if (!at) continue;
    if (at > text && at[-1] == '-')
      mask &= ~lw.bits;
    else
      mask |= lw.bits;
  }
  return mask;
}

const char *tagFor(uint32_t level) {
  switch (level) {
  case LogCrit:
    return "CRIT";
  case LogErr:
    return "ERR ";
  case LogWarn:
    return "WARN";
  case LogDbg:
    return "DBG ";
  case LogInfo:
    return "INFO";
  case LogCallTrace:
    return "CALL";
  default:
    return "UNKNOWN";
  }
}

int openSinkFile(const char *name) {
  return _sopen(name, _O_WRONLY | _O_APPEND | _O_CREAT | _O_TEXT, _SH_DENYNO, _S_IREAD | _S_IWRITE);
}

void openSink(Logger &log, const char *name, uint32_t mask) {
  if (!name) name = "syslog";
  log.fd = -1;
  if (mask != 0) log.levelMask = mask;
  if (_stricmp(name, "console") == 0) {
    log.fd = 2;
    return;
  }
  if (name != log.fileName) { // a reopen passes the stored name itself
    std::strncpy(log.fileName, name, kNameSize - 1);
    log.fileName[kNameSize - 1] = '\0';
  }
  const int fd = openSinkFile(log.fileName);
  log.fd = fd < 0 ? -1 : fd;
}

Logger &logger() {
  if (!g_logger) {
    Logger &log = g_loggerStorage;
    log.fd = -1;
    log.levelMask = LogCrit;
    log.programName[0] = '\0';
    const char *levels = std::getenv("TOV_LogLevels");
    const uint32_t mask = levels ? parseLevels(levels) : LogCrit;
    openSink(log, std::getenv("TOV_LogFile"), mask);
    g_logger = &log;
  }
  return *g_logger;
}

void fillProgramName(Logger &log) {
  const DWORD n = GetModuleFileNameA(nullptr, log.programName, kNameSize);
  // An old-style truncated path comes back unterminated.
  log.programName[n < kNameSize ? n : kNameSize - 1] = '\0';
  if (const char *slash = std::strrchr(log.programName, '\\')) {
    char base[13];
    std::strncpy(base, slash + 1, 12);
    base[12] = '\0';
    std::strcpy(log.programName, base);
  }
}

} // namespace

void LogPrintf(uint32_t level, const char *format, ...) noexcept {
  Logger &log = logger();
  if ((level & log.levelMask) == 0 || !format) return;
  const char *tag = tagFor(level);
  if (log.fd == -1) return;
  if (log.programName[0] == '\0') fillProgramName(log);

  char stamp[256];
  const time_t now = time(nullptr);
  const struct tm *local = localtime(&now);
  if (!local || strftime(stamp, sizeof stamp, "%b %d %H:%M:%S", local) == 0)
    std::strcpy(stamp, "??? ?? ??:??:??");

  char text[2048];
  int n = _snprintf(text, sizeof text, "\n%s [%s](%s):  ", stamp, log.programName, tag);
  if (n > 0) {
    if (_write(log.fd, text, static_cast<unsigned>(n)) < 0 && errno == EBADF && log.fd > 2) {
      _close(log.fd);
      openSink(log, log.fileName, log.levelMask);
      if (log.fd != -1) _write(log.fd, text, static_cast<unsigned>(n));
    }
  }

  va_list args;
  va_start(args, format);
  n = _vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (n > 0 && log.fd != -1) _write(log.fd, text, static_cast<unsigned>(n));
  if (log.fd != -1) _commit(log.fd);
}

} // namespace tov
