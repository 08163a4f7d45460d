// Writes and reads the archive of a backup. An entry is a header of 512 bytes and the content, filled up with zeros to
// whole blocks; two blocks of zeros are the end (POSIX.1-2017, pax, "ustar Interchange Format").

#include "host/backup/archive.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <new>
#include <utility>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/hexadecimal.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kBlockBytes = 512;
constexpr std::size_t kPieceBytes = std::size_t{1} << 20;
constexpr std::string_view kKind = "tarvex-backup";
constexpr std::string_view kKindText = "tarvex backup 1\n";
constexpr std::string_view kSum = "tarvex-backup.sha256";

struct Field {
    std::size_t at;
    std::size_t bytes;
};
constexpr Field kName{0, 100}, kMode{100, 8}, kOwner{108, 8}, kGroup{116, 8}, kSize{124, 12}, kTime{136, 12},
    kCheck{148, 8}, kType{156, 1}, kMagic{257, 8}, kPrefix{345, 155};
constexpr std::string_view kMagicText("ustar\00000", 8);

using Header = std::array<char, kBlockBytes>;

CommandError Bad(const std::string& why) { return {kBadData, Tr("this is no whole backup of a tree: {0}", why)}; }

std::size_t PaddingOf(std::size_t bytes) { return (kBlockBytes - bytes % kBlockBytes) % kBlockBytes; }

void Put(Header& header, Field field, std::string_view text) {
    std::copy(text.begin(), text.end(), header.begin() + static_cast<std::ptrdiff_t>(field.at));
}

// Octal digits that fill the field but for its last byte.
void PutNumber(Header& header, Field field, std::uint64_t number) {
    std::string digits(field.bytes - 1, '0');
    for (auto digit = digits.rbegin(); number != 0; number >>= 3U, ++digit) {
        *digit = static_cast<char>('0' + (number & 7U));
    }
    Put(header, field, digits);
}

std::string_view Get(std::string_view header, Field field) { return header.substr(field.at, field.bytes); }

std::string_view TextIn(std::string_view header, Field field) {
    const std::string_view text = Get(header, field);
    return text.substr(0, text.find('\0'));
}

std::uint64_t NumberIn(std::string_view header, Field field) {
    const std::string_view digits = TextIn(header, field);
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 8);
    if (error != std::errc() || end != digits.data() + digits.size()) throw Bad(Tr("a header is damaged"));
    return number;
}

// Counted with blanks in its own place.
std::uint64_t CheckOf(std::string_view header) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < header.size(); ++i) {
        const bool own = i >= kCheck.at && i < kCheck.at + kCheck.bytes;
        sum += own ? ' ' : static_cast<unsigned char>(header[i]);
    }
    return sum;
}

// The first part of a name that is too long for its field goes into another one.
void PutName(Header& header, std::string_view name) {
    if (name.size() <= kName.bytes) return Put(header, kName, name);
    const std::size_t slash = name.find('/', name.size() - kName.bytes - 1);
    if (slash == std::string_view::npos || slash > kPrefix.bytes) {
        throw CommandError(kBadData, Tr("\"{0}\" is too long a name for an archive", ShowUtf8Text(name)));
    }
    Put(header, kPrefix, name.substr(0, slash));
    Put(header, kName, name.substr(slash + 1));
}

std::string HeaderOf(std::string_view name, std::uint64_t bytes, CTime now) {
    Header header{};
    PutName(header, name);
    PutNumber(header, kMode, 0600);
    PutNumber(header, kOwner, 0);
    PutNumber(header, kGroup, 0);
    PutNumber(header, kSize, bytes);
    PutNumber(header, kTime, static_cast<std::uint64_t>(now));
    Put(header, kType, "0");
    Put(header, kMagic, kMagicText);
    PutNumber(header, kCheck, CheckOf({header.data(), header.size()}));
    return {header.data(), header.size()};
}

std::string NameIn(std::string_view header) {
    const std::string_view prefix = TextIn(header, kPrefix);
    return (prefix.empty() ? "" : std::string(prefix) + '/') + std::string(TextIn(header, kName));
}

// ---- names

std::string_view TakePart(std::string_view& name) {
    const std::size_t slash = std::min(name.find('/'), name.size());
    const std::string_view part = name.substr(0, slash);
    name.remove_prefix(std::min(slash + 1, name.size()));
    return part;
}

// Which neither leads elsewhere nor is anything but a file's name, on Windows as well.
bool IsPlain(std::string_view part) {
    return !part.empty() && part.front() != '.' && part.back() != '.' && part.back() != ' ' &&
           std::ranges::none_of(part, [](unsigned char c) {
               return c < 0x20 || c == 0x7F ||
                      std::string_view("<>:\"|?*\\/").find(static_cast<char>(c)) != std::string_view::npos;
           });
}

bool IsFolder(std::string_view part, std::string_view start) { return part.starts_with(start) && IsPlain(part); }

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
    return std::ranges::find(names, name) != names.end();
}

// "7.def", "7.mail"
bool IsOfHeld(std::string_view name) {
    const std::size_t dot = std::min(name.find('.'), name.size());
    const bool is_number =
        dot > 0 && dot < 10 && std::ranges::all_of(name.substr(0, dot), [](char c) { return c >= '0' && c <= '9'; });
    return is_number && IsOneOf(name.substr(dot), {".def", ".mail"});
}

bool IsOfProfile(std::string_view name) {
    if (IsOneOf(name, {"popprofile.def", "host.def", "profile.log"})) return true;
    const std::string_view folder = TakePart(name);
    if (folder == "held") return IsOfHeld(name);
    return IsFolder(folder, "forwardto") && IsOneOf(name, {"forwardaddress.def", "schedule.def", "uidl.def"});
}

}  // namespace

bool IsNameOfTree(std::string_view name) {
    if (name == "host.def") return true;
    const std::string_view first = TakePart(name);
    if (first == "providers.d") return IsPlain(name) && name.ends_with(".def");
    if (first == ".tarvex") {
        if (IsOneOf(name, {"sent.db", "sent.recent", "history.db", "generation"})) return true;
        const std::string_view folder = TakePart(name);
        return IsPlain(name) &&
               ((folder == "tokens" && name.ends_with(".json")) || (folder == "console" && name.ends_with(".code")));
    }
    if (!IsFolder(first, "user")) return false;
    if (IsOneOf(name, {"userset.def", "host.def"})) return true;
    return IsFolder(TakePart(name), "from") && IsOfProfile(name);
}

// ---- the sum

void Checksum::Free::operator()(evp_md_ctx_st* context) const { EVP_MD_CTX_free(context); }

Checksum::Checksum() : context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
}

void Checksum::Add(std::string_view bytes) {
    if (EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) != 1) throw std::bad_alloc();
}

std::string Checksum::Hex() const {
    const Checksum copy;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (EVP_MD_CTX_copy_ex(copy.context_.get(), context_.get()) != 1 ||
        EVP_DigestFinal_ex(copy.context_.get(), digest.data(), &length) != 1) {
        throw std::bad_alloc();
    }
    return Hexadecimal({digest.data(), length});
}

// ---- writing

ArchiveWriter::ArchiveWriter(std::function<void(std::string_view)> write, CTime now)
    : write_(std::move(write)), now_(now) {
    AddAny(std::string(kKind), kKindText);
}

void ArchiveWriter::Add(const std::string& name, std::string_view content) {
    if (!IsNameOfTree(name)) {
        throw CommandError(kBadData, Tr("\"{0}\" has a name that not every system allows", ShowUtf8Text(name)));
    }
    if (content.size() > kMostEntryBytes) {
        throw CommandError(kBadData, Tr("\"{0}\" is too large for an archive", ShowUtf8Text(name)));
    }
    AddAny(name, content);
    ++files_;
}

void ArchiveWriter::AddAny(const std::string& name, std::string_view content) {
    Put(HeaderOf(name, content.size(), now_));
    Put(content);
    Put(std::string(PaddingOf(content.size()), '\0'));
}

void ArchiveWriter::Finish() {
    AddAny(std::string(kSum), checksum_.Hex() + '\n');
    Put(std::string(2 * kBlockBytes, '\0'));
}

void ArchiveWriter::Put(std::string_view bytes) {
    checksum_.Add(bytes);
    bytes_ += bytes.size();
    write_(bytes);
}

// ---- reading

ArchiveReader::ArchiveReader(std::istream& input) : input_(input) {
    const ArchiveEntry kind = ReadEntry(ReadHeader());
    if (kind.name != kKind || kind.content != kKindText)
        throw Bad(Tr("another program, or a newer one, has written it"));
}

std::optional<ArchiveEntry> ArchiveReader::Next() {
    const std::string header = ReadHeader();
    const std::string sum = checksum_.Hex() + '\n';
    ArchiveEntry entry = ReadEntry(header);
    if (entry.name == kSum) {
        if (entry.content != sum) throw Bad(Tr("its bytes are not those that were written"));
        RequireEnd();
        return std::nullopt;
    }
    if (!IsNameOfTree(entry.name)) throw Bad(Tr("\"{0}\" is no file of a tree", ShowUtf8Text(entry.name)));
    return entry;
}

// All headers differ from the writer's own in nothing but name, size and date.
std::string ArchiveReader::ReadHeader() {
    std::string header = Read(kBlockBytes);
    if (Get(header, kMagic) != kMagicText) throw Bad(Tr("it ends too early, or is no such archive"));
    if (NumberIn(header, kCheck) != CheckOf(header)) throw Bad(Tr("a header is damaged"));
    if (Get(header, kType) != "0") throw Bad(Tr("\"{0}\" is no plain file", ShowUtf8Text(NameIn(header))));
    return header;
}

ArchiveEntry ArchiveReader::ReadEntry(const std::string& header) {
    const std::uint64_t bytes = NumberIn(header, kSize);
    if (bytes > kMostEntryBytes) throw Bad(Tr("a file in it is too large"));
    ArchiveEntry entry{NameIn(header), Read(static_cast<std::size_t>(bytes))};
    const std::string padding = Read(PaddingOf(entry.content.size()));
    checksum_.Add(header);
    checksum_.Add(entry.content);
    checksum_.Add(padding);
    return entry;
}

// Piece by piece: room is taken for what is there, not for what a header claims.
std::string ArchiveReader::Read(std::size_t bytes) {
    std::string content;
    while (content.size() < bytes) {
        const std::size_t before = content.size();
        content.resize(std::min(bytes, before + kPieceBytes));
        if (!input_.read(content.data() + before, static_cast<std::streamsize>(content.size() - before))) {
            throw Bad(Tr("it ends too early"));
        }
    }
    return content;
}

// Programs that copy archives fill them up with zeros.
void ArchiveReader::RequireEnd() {
    std::array<char, kBlockBytes> block{};
    std::size_t blocks = 0;
    for (; input_.read(block.data(), block.size()); ++blocks) {
        if (std::ranges::count(block, '\0') != block.size()) throw Bad(Tr("something follows its end"));
    }
    if (blocks < 2 || input_.gcount() != 0) throw Bad(Tr("it ends too early"));
}

}  // namespace tarvex::host
