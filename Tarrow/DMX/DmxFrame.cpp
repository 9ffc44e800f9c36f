#include "DMX/DmxFrame.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace kelvo {

namespace {

// A small parser for the one shape the engine sends 60 times a second: an object of arrays
// of numbers. Faster than building a generic JSON document; anything malformed yields empty.
class DmxJsonReader {
public:
    explicit DmxJsonReader(std::string_view text)
        : p_(text.data()), end_(text.data() + text.size()) {}

    DmxFrame read() {
        DmxFrame buffers;
        skipSpace();
        if (!consume('{'))
            return {};
        skipSpace();
        if (consume('}'))
            return finished() ? buffers : DmxFrame{};
        std::vector<std::uint8_t> bytes;
        while (true) {
            skipSpace();
            std::string_view key;
            bool plainKey = false;
            if (!readString(key, plainKey))
                return {};
            skipSpace();
            if (!consume(':'))
                return {};
            skipSpace();
            if (!consume('['))
                return {}; // a value that is not an array spoils the whole map
            bytes.clear();
            if (!readElements(bytes))
                return {};
            std::int64_t universe = 0;
            if (plainKey && parseUniverseKey(key, universe))
                buffers.insert_or_assign(universe, bytes);
            skipSpace();
            if (consume(','))
                continue;
            if (consume('}'))
                break;
            return {};
        }
        return finished() ? buffers : DmxFrame{};
    }

private:
    bool finished() {
        skipSpace();
        return p_ == end_;
    }

    void skipSpace() {
        while (p_ < end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t'))
            ++p_;
    }

    bool consume(char c) {
        if (p_ < end_ && *p_ == c) {
            ++p_;
            return true;
        }
        return false;
    }

    // Reads a string; `plain` is false when it held escapes. Escaped characters are never digits
    // or signs, so such a key can never name a universe and need not be decoded.
    bool readString(std::string_view& out, bool& plain) {
        if (!consume('"'))
            return false;
        const char* start = p_;
        plain = true;
        while (p_ < end_ && *p_ != '"') {
            if (static_cast<unsigned char>(*p_) < 0x20)
                return false;
            if (*p_ == '\\') {
                plain = false;
                if (++p_ == end_)
                    return false;
            }
            ++p_;
        }
        if (p_ == end_)
            return false;
        out = std::string_view(start, static_cast<std::size_t>(p_ - start));
        ++p_;
        return true;
    }

    bool readElements(std::vector<std::uint8_t>& bytes) {
        skipSpace();
        if (consume(']'))
            return true;
        while (true) {
            skipSpace();
            if (p_ == end_)
                return false;
            if (*p_ == '-' || (*p_ >= '0' && *p_ <= '9')) {
                std::uint8_t byte = 0;
                if (!readChannel(byte))
                    return false;
                bytes.push_back(byte);
            } else {
                if (!skipValue())
                    return false;
                bytes.push_back(0);
            }
            skipSpace();
            if (consume(','))
                continue;
            return consume(']');
        }
    }

    // Plain integers (what engines send) are read digit by digit; anything with a fraction or an
    // exponent goes through the full floating-point reader. The script's numbers are doubles, so
    // only integers of at most 15 digits (all exact in a double) may skip that reader: a longer
    // one such as 36028797018963970 names the double 2^55, whose low bits differ from the text's.
    bool readChannel(std::uint8_t& byte) {
        constexpr std::ptrdiff_t exactDigits = 15;
        const char* start = p_;
        const bool negative = *p_ == '-';
        const char* digits = negative ? p_ + 1 : p_;
        const char* q = digits;
        std::uint64_t magnitude = 0;
        while (q < end_ && *q >= '0' && *q <= '9' && q - digits < exactDigits)
            magnitude = magnitude * 10 + static_cast<std::uint64_t>(*q++ - '0');
        const bool plain =
            q > digits &&
            (q == end_ || (*q != '.' && *q != 'e' && *q != 'E' && (*q < '0' || *q > '9')));
        if (plain) {
            p_ = q;
            const std::uint64_t bits = negative ? ~magnitude + 1 : magnitude;
            byte = static_cast<std::uint8_t>(bits & 0xFFu);
            return true;
        }
        p_ = start;
        double value = 0;
        if (!readNumber(value))
            return false;
        byte = channelByte(value);
        return true;
    }

    bool readNumber(double& value) {
        const char* start = p_;
        while (p_ < end_ && ((*p_ >= '0' && *p_ <= '9') || *p_ == '-' || *p_ == '+' || *p_ == '.' ||
                             *p_ == 'e' || *p_ == 'E'))
            ++p_;
        const auto [last, error] = std::from_chars(start, p_, value);
        if (last != p_)
            return false;
        // Too small for a double is 0 and too large is no byte either: both are channel 0.
        if (error == std::errc::result_out_of_range)
            value = 0;
        return error == std::errc() || error == std::errc::result_out_of_range;
    }

    // Skips a string, literal, object or array element.
    bool skipValue() {
        if (p_ == end_)
            return false;
        if (*p_ == '"') {
            std::string_view ignored;
            bool plain = false;
            return readString(ignored, plain);
        }
        for (std::string_view literal : {"true", "false", "null"}) {
            if (std::string_view(p_, static_cast<std::size_t>(end_ - p_)).starts_with(literal)) {
                p_ += literal.size();
                return true;
            }
        }
        if (*p_ != '{' && *p_ != '[')
            return false;
        int depth = 0;
        while (p_ < end_) {
            const char c = *p_;
            if (c == '"') {
                std::string_view ignored;
                bool plain = false;
                if (!readString(ignored, plain))
                    return false;
                continue;
            }
            ++p_;
            if (c == '{' || c == '[')
                ++depth;
            else if ((c == '}' || c == ']') && --depth == 0)
                return true;
        }
        return false;
    }

    const char* p_;
    const char* end_;
};

} // namespace

bool parseUniverseKey(std::string_view key, std::int64_t& universe) {
    if (key.empty())
        return false;
    std::size_t start = 0;
    bool negative = false;
    if (key[0] == '+' || key[0] == '-') {
        negative = key[0] == '-';
        start = 1;
    }
    if (start == key.size())
        return false;
    // Accumulate negatively so that the minimum 64-bit value parses.
    std::int64_t value = 0;
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    for (std::size_t i = start; i < key.size(); ++i) {
        const char c = key[i];
        if (c < '0' || c > '9')
            return false;
        const int digit = c - '0';
        if (value < (lowest + digit) / 10)
            return false;
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == lowest)
            return false;
        value = -value;
    }
    universe = value;
    return true;
}

std::uint8_t channelByte(double value) {
    if (!std::isfinite(value))
        return 0;
    const double whole = std::trunc(value);
    if (whole < -9223372036854775808.0 || whole >= 9223372036854775808.0)
        return 0;
    return static_cast<std::uint8_t>(static_cast<std::uint64_t>(static_cast<std::int64_t>(whole)) &
                                     0xFFu);
}

DmxFrame parseDmxBuffersJSON(std::string_view json) {
    return DmxJsonReader(json).read();
}

} // namespace kelvo
