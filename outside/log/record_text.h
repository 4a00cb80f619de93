// The text of a record: one line of UTF-8, whatever the caller put into it.
#pragma once

#include <cstdarg>
#include <string>

namespace logging {

// `text`, in UTF-8 or else in the ANSI code page, as UTF-8 without its line end; control characters and the
// line separators of Unicode are spelt out, so that no text looks like a second record.
std::string oneLine(const std::string& text);

// Like vsprintf, of any length. A format that cannot be carried out is returned as it stands.
std::string formatted(const char* format, va_list arguments);

} // namespace logging
