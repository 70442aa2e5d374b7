/// Conversion of text between the engine, the detector and the host. Any thread. Invalid bytes become replacement
/// characters; the only exception is std::bad_alloc.
#pragma once

#include <string>

#include "engine/engine_records.h"

namespace plate_recognition {

/// Returns the text of a reading: all 16 bytes of the record's text, NULs included, converted from code page 936,
/// without the last wide character.
std::wstring ReadingTextOf(const RPLATE& plate);

/// Returns the text of a result: the bytes up to the first NUL, or all 16, converted from code page 936.
std::wstring ResultTextOf(const RPLATE& plate);

/// Converts wide text to UTF-8.
std::string Utf8Of(const std::wstring& text);

/// Converts text from the ANSI code page to UTF-8.
std::string Utf8OfAnsi(const std::string& text);

}  // namespace plate_recognition
