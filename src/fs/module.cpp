// Loadable modules through the platform's loader, and two texts of a module
// file's version record. The library keeps no table of modules.
#include "fs/file.h"

#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

namespace {

// Module path buffers of TOV_ModGetTimeVersion and TOV_ModValidateHandle.
constexpr DWORD kTimeVersionPath = 256;
constexpr DWORD kValidatePath = 260;

// TOV_strnzcpy for a buffer that may be 0 bytes long (then left alone).
void copyCut(char *destination, size_t size, const char *source) noexcept {
  if (size > 0) TOV_strnzcpy(destination, source, size);
}

enum class NoRecord { Ok, Mapped };

// Copies the string value `name` of file's version record, in the first
// language of its translation table, into text[0..size). A file without a
// record gives TOV_OK, or with NoRecord::Mapped the platform's reason when
// it maps to TOV_ERR_INVALID_MODULE. text is written only on success.
TOV_Status versionString(const char *file, const char *name, char *text, size_t size,
                         NoRecord noRecord) noexcept {
  DWORD ignored = 0;
  const DWORD bytes = GetFileVersionInfoSizeA(file, &ignored);
  if (bytes == 0) {
    if (noRecord == NoRecord::Ok) return TOV_OK;
    const TOV_Status reason = tov::MapLastSystemError();
    return reason == TOV_ERR_INVALID_MODULE ? reason : TOV_OK;
  }
  tov::UniqueBlock<char> record(static_cast<char *>(TOV_malloc(tov::libTag(), bytes)));
  if (!record) return TOV_ERR_NO_MEMORY;
  if (!GetFileVersionInfoA(file, 0, bytes, record.get())) return tov::MapLastSystemError();

  void *value = nullptr;
  UINT length = 0;
  if (!VerQueryValueA(record.get(), "\\VarFileInfo\\Translation", &value, &length) || length < 4)
    return TOV_ERR_INVALID_MODULE;
  DWORD pair;
  std::memcpy(&pair, value, sizeof pair); // language low, code page high
  char query[64];
  std::snprintf(query, sizeof query, "\\StringFileInfo\\%04x%04x\\%s",
                static_cast<unsigned>(pair & 0xFFFF), static_cast<unsigned>(pair >> 16), name);
  if (!VerQueryValueA(record.get(), query, &value, &length)) return tov::MapLastSystemError();
  copyCut(text, size, static_cast<const char *>(value));
  return TOV_OK;
}

} // namespace

extern "C" TOV_Status TOV_ModLoad(const char *name, TOV_ModHandle *module) noexcept {
  *module = LoadLibraryA(name);
  if (*module) return TOV_OK;
  if (!name) return tov::MapLastSystemError();
  // Once more with the suffix, also after one already there.
  const size_t length = std::strlen(name);
  tov::UniqueBlock<char> withSuffix(
      static_cast<char *>(TOV_malloc(tov::libTag(), length + sizeof ".dll")));
  if (!withSuffix) return TOV_ERR_NO_MEMORY;
  std::memcpy(withSuffix.get(), name, length);
  std::memcpy(withSuffix.get() + length, ".dll", sizeof ".dll");
  *module = LoadLibraryA(withSuffix.get());
  return *module ? TOV_OK : tov::MapLastSystemError();
}

extern "C" TOV_Status TOV_ModUnload(TOV_ModHandle module) noexcept {
  return FreeLibrary(static_cast<HMODULE>(module)) ? TOV_OK : tov::MapLastSystemError();
}

extern "C" TOV_Status TOV_ModResolveSym(TOV_ModHandle module, const char *symbol,
                                        void **address) noexcept {
  *address = reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(module), symbol));
  return *address ? TOV_OK : tov::MapLastSystemError();
}

extern "C" TOV_Status TOV_ModUnResolveSym(TOV_ModHandle, void *) noexcept {
  return TOV_OK;
}

extern "C" TOV_Status TOV_ModGetHandle(const char *name, TOV_ModHandle *module) noexcept {
  TOV_FRAME(name != nullptr);
  HMODULE h = GetModuleHandleA(name);
  if (!h) return tov::MapLastSystemError();
  *module = h;
  return TOV_OK;
}

extern "C" TOV_Status TOV_ModGetFullPath(TOV_ModHandle module, char *path, uint64_t size) noexcept {
  TOV_FRAME(path != nullptr && size != 0);
  if (!module) return TOV_ERR_INVALID_PARAMETER;
  const auto room = static_cast<DWORD>(size);
  SetLastError(NO_ERROR);
  const DWORD length = GetModuleFileNameA(static_cast<HMODULE>(module), path, room);
  if (length == 0) {
    const DWORD error = GetLastError();
    return error == NO_ERROR ? TOV_ERR_INVALID_PARAMETER : tov::MapSystemError(error);
  }
  // A cut path may come without its terminator.
  if (length >= room) path[room - 1] = '\0';
  return TOV_OK;
}

extern "C" TOV_Status TOV_ModGetTimeVersion(TOV_ModHandle module, int64_t *modified, char *version,
                                            uint32_t size) noexcept {
  char path[kTimeVersionPath];
  if (GetModuleFileNameA(static_cast<HMODULE>(module), path, sizeof path) == 0)
    return tov::MapLastSystemError();
  path[sizeof path - 1] = '\0';

  if (modified) {
    // Best effort, with no sharing: a file that someone holds open leaves the
    // time as it was.
    tov::UniqueHandle file(CreateFileA(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    FILETIME written;
    if (file && GetFileTime(file.get(), nullptr, nullptr, &written))
      *modified = tov::fileTimeToSeconds(written);
  }
  if (!version || size == 0) return TOV_OK;
  copyCut(version, size, "0.0.0");
  return versionString(path, "FileVersion", version, size, NoRecord::Ok);
}

extern "C" TOV_Status TOV_ModValidateHandle(TOV_ModHandle module) noexcept {
  char path[kValidatePath];
  if (module && GetModuleFileNameA(static_cast<HMODULE>(module), path, sizeof path) != 0)
    return TOV_OK;
  return TOV_ERR_INVALID_PARAMETER;
}

extern "C" TOV_Status TOV_ModValidateName(const char *file, uint32_t size,
                                          char *description) noexcept {
  copyCut(description, size, "");
  return versionString(file, "FileDescription", description, size, NoRecord::Mapped);
}
