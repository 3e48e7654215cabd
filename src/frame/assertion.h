// The pieces of the assertion report that need no window: its dialog template
// and its text.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tov {

// The report's exception code, read by the dialog to choose title and text.
constexpr uint32_t kAssertionCode = 0x01000001;
constexpr size_t kTemplateBufferSize = 300;
constexpr size_t kReportTextSize = 4096;

// Writes the report dialog's in-memory template (a DLGTEMPLATE and its four
// items) at the start of buffer and returns its length in bytes. Items are
// aligned from the buffer's start: give a 4-byte aligned buffer.
size_t buildReportTemplate(uint8_t (&buffer)[kTemplateBufferSize]) noexcept;

// Writes the text of an assertion report into text, always terminated, and
// returns its length. An expression and file name too long for it are cut as
// tov.h describes.
size_t formatAssertionText(char (&text)[kReportTextSize], const char *expression, const char *file,
                           int32_t line) noexcept;

} // namespace tov
