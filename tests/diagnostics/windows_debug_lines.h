/// The texts that the writing program writes and the test expects.
#pragma once

#include <string>
#include <vector>

/// Texts of every kind, in the engine's code page too, and every byte except NUL.
inline std::vector<std::string> NarrowTexts() {
    std::string allBytes;
    for (int byte = 1; byte <= 255; ++byte) {
        allBytes.push_back(static_cast<char>(byte));
    }
    return {"plain",
            "",
            "with an end\n",
            "with an end of both\r\n",
            "two\nlines",
            "100% of %1% and %s",
            "\xBE\xA9"
            "A12345",
            allBytes,
            std::string(5000, 'x') + "end",
            std::string(200'000, 'y') + "end"};
}

/// The system itself cuts wide texts at 32767 characters.
inline std::vector<std::wstring> WideTexts() {
    return {L"wide", L"", L"with an end\r\n", L"\u4EACA12345", L"\u4EAC" + std::wstring(30'000, L'z') + L"end"};
}
