#include "platform/text.h"

#include <errno.h>
#include <iconv.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <limits>
#include <mutex>

#include "platform/last_error.h"

namespace platform {

namespace {

using Byte = unsigned char;

constexpr char32_t replacement = 0xFFFD;
constexpr char32_t largestCharacter = 0x10FFFF;

constexpr bool IsSurrogate(char32_t character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

// Output. The same routine counts and writes, so that both agree.

template <class Unit>
class Output {
  public:
    Output(Unit* to, int room) : units_(to), capacity_(room) {}

    void Add(Unit unit) {
        if (count_ < capacity_) {
            units_[count_] = unit;
        }
        ++count_;
    }

    // Returns the number of units, or 0 with the last error set when they do not fit.
    int Finish() const {
        if ((capacity_ != 0 && count_ > capacity_) || count_ > std::numeric_limits<int>::max()) {
            SetLastError(ERANGE);
            return 0;
        }
        return static_cast<int>(count_);
    }

  private:
    Unit* units_;
    std::int64_t capacity_;
    std::int64_t count_ = 0;
};

// Code page 936

constexpr unsigned firstLead = 0x81;
constexpr unsigned lastLead = 0xFE;
constexpr unsigned firstTrail = 0x40;
constexpr unsigned lastTrail = 0xFE;
constexpr unsigned noTrail = 0x7F;
constexpr char16_t euroSign = 0x20AC;         // byte 80
constexpr char16_t byteFfCharacter = 0xF8F5;  // byte FF
constexpr char16_t firstUnassignedCharacter = 0xE766;

struct PairRange {
    unsigned first;
    unsigned last;
};

// The unassigned pairs in the assigned rows. In order they map to the private-use characters U+E766 to U+E864.
constexpr PairRange unassignedPairs[] = {
    {0xA2AB, 0xA2B0}, {0xA2E3, 0xA2E4}, {0xA2EF, 0xA2F0}, {0xA2FD, 0xA2FE}, {0xA4F4, 0xA4FE}, {0xA5F7, 0xA5FE},
    {0xA6B9, 0xA6C0}, {0xA6D9, 0xA6DF}, {0xA6EC, 0xA6ED}, {0xA6F3, 0xA6F3}, {0xA6F6, 0xA6FE}, {0xA7C2, 0xA7D0},
    {0xA7F2, 0xA7FE}, {0xA896, 0xA8A0}, {0xA8BC, 0xA8BC}, {0xA8BF, 0xA8BF}, {0xA8C1, 0xA8C4}, {0xA8EA, 0xA8FE},
    {0xA958, 0xA958}, {0xA95B, 0xA95B}, {0xA95D, 0xA95F}, {0xA989, 0xA995}, {0xA997, 0xA9A3}, {0xA9F0, 0xA9FE},
    {0xD7FA, 0xD7FE}, {0xFE50, 0xFE7E}, {0xFE80, 0xFEA0}};

constexpr bool IsTrail(unsigned byte) {
    return byte >= firstTrail && byte <= lastTrail && byte != noTrail;
}

// Returns the character of a pair in the user-defined rows; 0 for another pair.
constexpr char16_t UserDefinedCharacter(unsigned lead, unsigned trail) {
    if (lead >= 0xAA && lead <= 0xAF && trail >= 0xA1) {
        return static_cast<char16_t>(0xE000 + (lead - 0xAA) * 94 + (trail - 0xA1));
    }
    if (lead >= 0xF8 && trail >= 0xA1) {
        return static_cast<char16_t>(0xE234 + (lead - 0xF8) * 94 + (trail - 0xA1));
    }
    if (lead >= 0xA1 && lead <= 0xA7 && trail <= 0xA0) {
        const unsigned cell = trail - firstTrail - (trail > noTrail ? 1 : 0);
        return static_cast<char16_t>(0xE4C6 + (lead - 0xA1) * 96 + cell);
    }
    return 0;
}

// The tables of code page 936 for both directions; 0 for no character.
class SimplifiedChinese {
  public:
    // Fills the tables on first use. Returns false, with the last error set, when the system cannot open the code page.
    // The next call tries again, because the cause may have been a lack of descriptors. Any thread.
    bool Prepare() {
        if (ready_.load(std::memory_order_acquire)) {
            return true;
        }
        const std::lock_guard lock(mutex_);
        if (ready_.load(std::memory_order_relaxed)) {
            return true;
        }
        const iconv_t converter = ::iconv_open("UTF-16LE", "CP936");
        // On failure iconv_open returns -1 as a pointer.
        if (reinterpret_cast<std::intptr_t>(converter) == -1) {
            SetLastError(static_cast<std::uint32_t>(errno));
            return false;
        }
        AddConvertedPairs(converter);
        ::iconv_close(converter);
        AddUnassignedPairs();
        codes_[euroSign] = 0x80;
        codes_[byteFfCharacter] = 0xFF;
        ready_.store(true, std::memory_order_release);
        return true;
    }

    // REQUIRES: Prepare has returned true; `lead` is a lead byte.
    char16_t Character(unsigned lead, unsigned trail) const {
        return IsTrail(trail) ? characters_[lead - firstLead][trail - firstTrail] : u'\0';
    }

    // Returns the pair, or the single byte above 7F, of a character. REQUIRES: Prepare has returned true.
    char16_t Code(char16_t character) const { return codes_[character]; }

  private:
    void Add(unsigned lead, unsigned trail, char16_t character) {
        characters_[lead - firstLead][trail - firstTrail] = character;
        codes_[character] = static_cast<char16_t>(lead << 8 | trail);
    }

    void AddConvertedPairs(iconv_t converter) {
        for (unsigned lead = firstLead; lead <= lastLead; ++lead) {
            for (unsigned trail = firstTrail; trail <= lastTrail; ++trail) {
                if (!IsTrail(trail)) {
                    continue;
                }
                char16_t character = UserDefinedCharacter(lead, trail);
                if (character == 0) {
                    character = Convert(converter, lead, trail);
                }
                if (character != 0) {
                    Add(lead, trail, character);
                }
            }
        }
    }

    static char16_t Convert(iconv_t converter, unsigned lead, unsigned trail) {
        char pair[2] = {static_cast<char>(lead), static_cast<char>(trail)};
        Byte unit[2] = {};
        char* from = pair;
        char* to = reinterpret_cast<char*>(unit);
        std::size_t fromLeft = sizeof(pair);
        std::size_t toLeft = sizeof(unit);
        ::iconv(converter, nullptr, nullptr, nullptr, nullptr);
        if (::iconv(converter, &from, &fromLeft, &to, &toLeft) != 0 || fromLeft != 0 || toLeft != 0) {
            return 0;
        }
        return static_cast<char16_t>(unit[1] << 8 | unit[0]);
    }

    void AddUnassignedPairs() {
        char16_t character = firstUnassignedCharacter;
        for (const PairRange& range : unassignedPairs) {
            for (unsigned pair = range.first; pair <= range.last; ++pair) {
                Add(pair >> 8, pair & 0xFF, character++);
            }
        }
    }

    std::atomic<bool> ready_ = false;
    std::mutex mutex_;  // guards the tables until they are ready; then they are constant
    std::array<std::array<char16_t, lastTrail - firstTrail + 1>, lastLead - firstLead + 1> characters_ = {};
    std::array<char16_t, 0x10000> codes_ = {};
};

constinit SimplifiedChinese simplifiedChinese;

void SimplifiedChineseToWide(const Byte* bytes, std::size_t count, Output<wchar_t>& wide) {
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned byte = bytes[i];
        if (byte < 0x80) {
            wide.Add(static_cast<wchar_t>(byte));
        } else if (byte == 0x80) {
            wide.Add(static_cast<wchar_t>(euroSign));
        } else if (byte == 0xFF) {
            wide.Add(static_cast<wchar_t>(byteFfCharacter));
        } else if (i + 1 == count || bytes[i + 1] == 0) {
            wide.Add(L'?');  // a NUL is never the second byte of a pair
        } else {
            const char16_t character = simplifiedChinese.Character(byte, bytes[++i]);
            wide.Add(character == 0 ? L'?' : static_cast<wchar_t>(character));
        }
    }
}

void WideToSimplifiedChinese(const wchar_t* wide, std::size_t count, Output<char>& bytes) {
    for (std::size_t i = 0; i < count; ++i) {
        const char32_t character = static_cast<char32_t>(wide[i]);
        const unsigned code = character < 0x80      ? static_cast<unsigned>(character)
                              : character <= 0xFFFF ? simplifiedChinese.Code(static_cast<char16_t>(character))
                                                    : 0u;
        if (code == 0 && character != 0) {
            bytes.Add('?');
            continue;
        }
        if (code > 0xFF) {
            bytes.Add(static_cast<char>(code >> 8));
        }
        bytes.Add(static_cast<char>(code & 0xFF));
    }
}

// UTF-8

void AddWide(Output<wchar_t>& wide, char32_t character) {
    if constexpr (sizeof(wchar_t) == 2) {
        if (character > 0xFFFF) {
            wide.Add(static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10)));
            wide.Add(static_cast<wchar_t>(0xDC00 + ((character - 0x10000) & 0x3FF)));
            return;
        }
    }
    wide.Add(static_cast<wchar_t>(character));
}

// Returns the number of bytes that follow a first byte and sets `character` to its bits; -1 for an invalid first byte.
int FollowingBytes(unsigned first, char32_t& character) {
    if (first >= 0xC2 && first <= 0xDF) {
        character = first & 0x1F;
        return 1;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        character = first & 0x0F;
        return 2;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        character = first & 0x07;
        return 3;
    }
    return -1;
}

// False for the beginning of a character that would be overlong, a surrogate or above U+10FFFF. `left` bytes are
// missing.
bool CanBecomeCharacter(char32_t beginning, int following, int left) {
    const char32_t smallest = beginning << (6 * left);
    if (following == 2) {
        return left == 2 || (smallest >= 0x800 && !IsSurrogate(smallest));
    }
    if (following == 3) {
        return left == 3 || (smallest >= 0x10000 && smallest <= largestCharacter);
    }
    return true;
}

// An invalid sequence becomes one replacement character. It includes the continuation bytes read so far, also the one
// that made it invalid.
void Utf8ToWide(const Byte* bytes, std::size_t count, Output<wchar_t>& wide) {
    std::size_t i = 0;
    while (i < count) {
        const unsigned first = bytes[i++];
        if (first < 0x80) {
            wide.Add(static_cast<wchar_t>(first));
            continue;
        }
        char32_t character = 0;
        const int following = FollowingBytes(first, character);
        int left = following;
        bool valid = following > 0;
        while (valid && left > 0) {
            valid = i < count && (bytes[i] & 0xC0) == 0x80;
            if (valid) {
                character = character << 6 | (bytes[i++] & 0x3F);
                valid = CanBecomeCharacter(character, following, --left);
            }
        }
        AddWide(wide, valid ? character : replacement);
    }
}

void WideToUtf8(const wchar_t* wide, std::size_t count, Output<char>& bytes) {
    for (std::size_t i = 0; i < count; ++i) {
        char32_t character = static_cast<char32_t>(wide[i]);
        if (character >= 0xD800 && character <= 0xDBFF && i + 1 < count) {
            const char32_t next = static_cast<char32_t>(wide[i + 1]);
            if (next >= 0xDC00 && next <= 0xDFFF) {
                character = 0x10000 + ((character - 0xD800) << 10) + (next - 0xDC00);
                ++i;
            }
        }
        if (IsSurrogate(character) || character > largestCharacter) {
            character = replacement;
        }
        if (character < 0x80) {
            bytes.Add(static_cast<char>(character));
            continue;
        }
        const int following = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
        constexpr unsigned firstBytes[] = {0, 0xC0, 0xE0, 0xF0};
        bytes.Add(static_cast<char>(firstBytes[following] | (character >> (6 * following))));
        for (int left = following - 1; left >= 0; --left) {
            bytes.Add(static_cast<char>(0x80 | ((character >> (6 * left)) & 0x3F)));
        }
    }
}

int InvalidArgument() {
    SetLastError(EINVAL);
    return 0;
}

}  // namespace

int ToWide(std::uint32_t codePage, const char* bytes, int byteCount, wchar_t* wide, int capacity) {
    if (bytes == nullptr || byteCount <= 0 || capacity < 0 || (capacity > 0 && wide == nullptr)) {
        return InvalidArgument();
    }
    const Byte* from = reinterpret_cast<const Byte*>(bytes);
    const std::size_t count = static_cast<std::size_t>(byteCount);
    Output<wchar_t> to(wide, capacity);
    switch (codePage) {
        case codePageSimplifiedChinese:
            if (!simplifiedChinese.Prepare()) {
                return 0;
            }
            SimplifiedChineseToWide(from, count, to);
            break;
        case codePageAnsi:
        case codePageUtf8:
            Utf8ToWide(from, count, to);
            break;
        default:
            return InvalidArgument();
    }
    return to.Finish();
}

int FromWide(std::uint32_t codePage, const wchar_t* wide, int wideCount, char* bytes, int capacity) {
    if (wide == nullptr || wideCount <= 0 || capacity < 0 || (capacity > 0 && bytes == nullptr)) {
        return InvalidArgument();
    }
    const std::size_t count = static_cast<std::size_t>(wideCount);
    Output<char> to(bytes, capacity);
    switch (codePage) {
        case codePageSimplifiedChinese:
            if (!simplifiedChinese.Prepare()) {
                return 0;
            }
            WideToSimplifiedChinese(wide, count, to);
            break;
        case codePageAnsi:
        case codePageUtf8:
            WideToUtf8(wide, count, to);
            break;
        default:
            return InvalidArgument();
    }
    return to.Finish();
}

}  // namespace platform
