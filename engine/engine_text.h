/// Text between the engine, the detector and the host. Any thread.
#pragma once

#include <string>

#include "engine/engine_records.h"

namespace plate_recognition {

/// The text of a reading: all 16 bytes of the record's text, NULs included, converted from code page 936; the last wide
/// character is dropped. Bytes without meaning do not fail.
std::wstring ReadingTextOf(const RPLATE& plate);

/// The text of a result: the bytes up to the first NUL, all 16 when there is none.
std::wstring ResultTextOf(const RPLATE& plate);

/// Wide text in UTF-8.
std::string Utf8Of(const std::wstring& text);

/// A text of the system's own code page in UTF-8.
std::string Utf8OfAnsi(const std::string& text);

}  // namespace plate_recognition
