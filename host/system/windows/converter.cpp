// Character by character by way of UTF-16. Not every system converts ISO-2022-JP, which is a matter of arithmetic.

#include "host/system/converter.h"

#include <windows.h>

#include <array>
#include <cstddef>

namespace tarvex::host {
namespace {

constexpr unsigned kShiftJis = 932;

enum class Form { Unknown, Ascii, Utf8, ShiftJis, Jis };

Form FormOf(std::string_view charset) {
    if (charset == "US-ASCII") return Form::Ascii;
    if (charset == "UTF-8") return Form::Utf8;
    if (charset == "CP932") return Form::ShiftJis;
    return charset == "ISO-2022-JP" ? Form::Jis : Form::Unknown;
}

// The bytes of one character.
struct Code {
    std::array<char, 4> bytes{};
    int count = 0;  // 0 for what cannot be expressed
};

// Between a double-byte code of JIS X 0208 (0x2121 to 0x7E7E) and Shift-JIS.
Code JisToShiftJis(int row, int cell) {
    const int lead = (row - 0x21) / 2 + (row < 0x5F ? 0x81 : 0xC1);
    const int trail = row % 2 == 0 ? cell + 0x7E : cell + (cell < 0x60 ? 0x1F : 0x20);
    return {{static_cast<char>(lead), static_cast<char>(trail)}, 2};
}

Code ShiftJisToJis(const Code& code) {
    const int lead = static_cast<unsigned char>(code.bytes[0]);
    const int trail = static_cast<unsigned char>(code.bytes[1]);
    if (code.count != 2 || lead > 0xEF) return {};
    const bool is_even = trail >= 0x9F;
    const int row = (lead - (lead < 0xA0 ? 0x81 : 0xC1)) * 2 + 0x21 + (is_even ? 1 : 0);
    const int cell = is_even ? trail - 0x7E : trail - (trail < 0x80 ? 0x1F : 0x20);
    return {{static_cast<char>(row), static_cast<char>(cell)}, 2};
}

// Empty when the bytes are no character.
std::wstring Decode(unsigned code_page, std::string_view character) {
    std::array<wchar_t, 2> units;
    const int count = MultiByteToWideChar(code_page, MB_ERR_INVALID_CHARS, character.data(),
                                          static_cast<int>(character.size()), units.data(), units.size());
    return {units.data(), static_cast<std::size_t>(count)};
}

Code Encode(unsigned code_page, const std::wstring& character) {
    Code code;
    BOOL replaced = FALSE;
    const bool is_utf8 = code_page == CP_UTF8;  // which takes other arguments
    code.count = WideCharToMultiByte(code_page, is_utf8 ? 0 : WC_NO_BEST_FIT_CHARS, character.data(),
                                     static_cast<int>(character.size()), code.bytes.data(), code.bytes.size(), nullptr,
                                     is_utf8 ? nullptr : &replaced);
    if (replaced) code.count = 0;
    return code;
}

std::string_view View(const Code& code) { return {code.bytes.data(), static_cast<std::size_t>(code.count)}; }

std::size_t Utf8Bytes(char first) {
    const auto byte = static_cast<unsigned char>(first);
    return byte < 0xC0 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

constexpr std::string_view kToAscii = "\x1b(B";
constexpr std::string_view kToDoubleByte = "\x1b$B";

}  // namespace

struct Converter::Impl {
    Form from;
    Form to;
    bool reads_double_bytes = false;
    bool writes_double_bytes = false;

    // Takes an escape sequence away; false when there is none that is known.
    bool Escape(std::string_view& text) {
        const std::string_view sequence = text.substr(0, 3);
        const bool is_single = sequence == kToAscii || sequence == "\x1b(J";
        if (!is_single && sequence != kToDoubleByte && sequence != "\x1b$@") return false;
        reads_double_bytes = !is_single;
        text.remove_prefix(3);
        return true;
    }

    // How many bytes the first character has, and what it is; empty when it is none.
    std::wstring Read(std::string_view text, std::size_t& bytes) const {
        const char first = text.front();
        const bool is_ascii = static_cast<unsigned char>(first) < 0x80;
        bytes = 1;
        if (from == Form::Jis && reads_double_bytes && first > ' ' && text.size() > 1) {
            bytes = 2;
            return Decode(kShiftJis, View(JisToShiftJis(first, text[1])));
        }
        if (is_ascii) return std::wstring(1, static_cast<wchar_t>(first));
        if (from == Form::Utf8) bytes = Utf8Bytes(first);
        if (from == Form::ShiftJis && IsDBCSLeadByteEx(kShiftJis, static_cast<BYTE>(first))) bytes = 2;
        if (from == Form::Ascii || from == Form::Jis || bytes > text.size()) return {};
        return Decode(from == Form::Utf8 ? CP_UTF8 : kShiftJis, text.substr(0, bytes));
    }

    // False when the other character set does not have it.
    bool Write(const std::wstring& character, std::string& result) {
        const bool is_ascii = character.size() == 1 && character[0] < 0x80;
        if (to == Form::Ascii && !is_ascii) return false;
        Code code = Encode(to == Form::ShiftJis || to == Form::Jis ? kShiftJis : CP_UTF8, character);
        if (to == Form::Jis && !is_ascii) code = ShiftJisToJis(code);
        if (code.count == 0) return false;
        if (to == Form::Jis) Switch(!is_ascii, result);
        result += View(code);
        return true;
    }

    void Switch(bool to_double_byte, std::string& result) {
        if (writes_double_bytes != to_double_byte) result += to_double_byte ? kToDoubleByte : kToAscii;
        writes_double_bytes = to_double_byte;
    }
};

Converter::Converter(const char* to, const char* from) : impl_(new Impl{FormOf(from), FormOf(to)}) {}

Converter::~Converter() = default;

bool Converter::IsThere() const { return impl_->from != Form::Unknown && impl_->to != Form::Unknown; }

void Converter::Convert(std::string_view& text, std::string& result) {
    if (!IsThere()) return;
    while (!text.empty()) {
        if (impl_->from == Form::Jis && impl_->Escape(text)) continue;
        std::size_t bytes = 0;
        const std::wstring character = impl_->Read(text, bytes);
        if (character.empty() || !impl_->Write(character, result)) return;
        text.remove_prefix(bytes);
    }
}

void Converter::Finish(std::string& result) { impl_->Switch(false, result); }

}  // namespace tarvex::host
