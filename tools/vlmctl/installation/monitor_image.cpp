#include "tools/vlmctl/installation/monitor_image.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

namespace vlm::ctl {

namespace {

constexpr std::uint16_t kMachineX64 = 0x8664;
constexpr std::uint16_t kOptionalHeader64 = 0x20B;
constexpr std::uint16_t kExecutableImage = 0x0002;
constexpr std::uint16_t kDll = 0x2000;
constexpr std::uint32_t kExecutableSection = 0x20000000;
constexpr std::uint32_t kSectorSize = 512;
constexpr std::uint64_t kSectionEntry = 40;
constexpr std::uint32_t kMostSections = 96;
constexpr std::uint32_t kMostExports = 65'536;
constexpr std::uint32_t kVersionResource = 16;
constexpr std::uint32_t kSubdirectory = 0x80000000;
constexpr std::uint32_t kFixedVersionSignature = 0xFEEF04BD;

struct Damaged {
    const char* what;  // outlives the function that throws it
};

// Bytes that are read at offsets; a piece that is not there is damage.
class ImageBytes {
 public:
    explicit ImageBytes(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    ImageBytes Piece(std::uint64_t offset, std::uint64_t size, const char* what) const {
        if (offset > bytes_.size() || size > bytes_.size() - offset) throw Damaged{what};
        return ImageBytes(bytes_.subspan(static_cast<size_t>(offset), static_cast<size_t>(size)));
    }
    std::uint16_t U16(size_t at) const {
        const ImageBytes two = Piece(at, 2, "it ends within its headers");
        return static_cast<std::uint16_t>(two.bytes_[0] | two.bytes_[1] << 8);
    }
    std::uint32_t U32(size_t at) const { return U16(at) | static_cast<std::uint32_t>(U16(at + 2)) << 16; }
    // Whether a text with its NUL stands there.
    bool HoldsText(std::string_view text) const {
        return bytes_.size() > text.size() && bytes_[text.size()] == 0 &&
               std::equal(text.begin(), text.end(), bytes_.begin(),
                          [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
    }
    size_t Size() const { return bytes_.size(); }

 private:
    std::span<const std::uint8_t> bytes_;
};

struct Section {
    std::uint32_t address;  // in the loaded image, as all addresses here
    std::uint32_t size;     // of what is in the file
    std::uint32_t offset;
    bool executable;
};

struct Directory {
    std::uint32_t address = 0;
    std::uint32_t size = 0;
};

class PortableExecutable {
 public:
    explicit PortableExecutable(const ImageBytes& file) : file_(file) {
        const ImageBytes dos = file_.Piece(0, 64, "it is too short");
        if (dos.U16(0) != 0x5A4D) throw Damaged{"it has no MZ header"};
        const std::uint64_t start = dos.U32(0x3C);
        const ImageBytes header = file_.Piece(start, 24, "its header lies outside the file");
        if (header.U32(0) != 0x4550) throw Damaged{"it has no PE header"};
        flags_ = header.U16(22);
        const std::uint32_t optionalSize = header.U16(20);
        const ImageBytes optional = file_.Piece(start + 24, optionalSize, "it ends within its headers");
        isForX64_ = header.U16(4) == kMachineX64 && optional.U16(0) == kOptionalHeader64;
        if (!isForX64_) return;  // the other headers' fields lie elsewhere
        // Beyond sixteen no directory has a meaning.
        const std::uint32_t directories = std::min<std::uint32_t>(optional.U32(108), 16);
        for (std::uint32_t i = 0; i < directories; ++i)
            directories_.push_back({optional.U32(112 + 8 * i), optional.U32(116 + 8 * i)});
        ReadSections(start + 24 + optionalSize, header.U16(6));
    }

    bool IsForX64() const { return isForX64_; }
    bool IsDll() const { return (flags_ & kDll) != 0 && (flags_ & kExecutableImage) != 0; }

    Directory DirectoryAt(size_t index) const {
        return index < directories_.size() ? directories_[index] : Directory{};
    }

    // What the file has for a range of the loaded image.
    ImageBytes Range(std::uint32_t address, std::uint64_t size, const char* what) const {
        const Section* section = SectionOf(address);
        if (section == nullptr || size > section->size - (address - section->address)) throw Damaged{what};
        const std::uint64_t offset = section->offset;
        return file_.Piece(offset + (address - section->address), size, what);
    }
    // From an address to the end of its section.
    ImageBytes From(std::uint32_t address, const char* what) const {
        const Section* section = SectionOf(address);
        if (section == nullptr) throw Damaged{what};
        return Range(address, section->size - (address - section->address), what);
    }
    bool IsCode(std::uint32_t address) const {
        const Section* section = SectionOf(address);
        return section != nullptr && section->executable;
    }

 private:
    void ReadSections(std::uint64_t start, std::uint32_t count) {
        if (count > kMostSections) throw Damaged{"it has too many sections"};
        const ImageBytes table = file_.Piece(start, count * kSectionEntry, "it ends within its headers");
        std::uint64_t end = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            const ImageBytes entry =
                table.Piece(i * kSectionEntry, kSectionEntry, "it ends within its headers");
            const std::uint32_t loaded = entry.U32(8);
            const std::uint32_t inFile = entry.U32(16);
            // A loader reads whole sectors, and no more than the section has in memory.
            Section section{entry.U32(12), loaded == 0 ? inFile : std::min(loaded, inFile),
                            entry.U32(20) / kSectorSize * kSectorSize,
                            (entry.U32(36) & kExecutableSection) != 0};
            if (section.address < end) throw Damaged{"its sections overlap"};
            end = section.address;
            end += std::max(loaded, inFile);
            if (inFile != 0) file_.Piece(entry.U32(20), inFile, "a section lies outside the file");
            sections_.push_back(section);
        }
    }
    const Section* SectionOf(std::uint32_t address) const {
        const auto found = std::ranges::find_if(sections_, [&](const Section& one) {
            return address >= one.address && address - one.address < one.size;
        });
        return found != sections_.end() ? &*found : nullptr;
    }

    ImageBytes file_;
    bool isForX64_ = false;
    std::uint16_t flags_ = 0;
    std::vector<Directory> directories_;
    std::vector<Section> sections_;
};

constexpr char kExportsOutside[] = "its export directory lies outside the file";

// The address of the function that is exported under the name.
std::optional<std::uint32_t> FindExport(const PortableExecutable& image, std::string_view name) {
    constexpr size_t kExports = 0;
    constexpr std::uint64_t kAddressSize = 4;
    constexpr std::uint64_t kOrdinalSize = 2;
    const Directory directory = image.DirectoryAt(kExports);
    if (directory.address == 0) return std::nullopt;
    const ImageBytes head = image.Range(directory.address, 40, kExportsOutside);
    const std::uint32_t functions = head.U32(20);
    const std::uint32_t names = head.U32(24);
    if (functions > kMostExports || names > kMostExports) throw Damaged{"it has too many exports"};
    if (names == 0) return std::nullopt;
    const ImageBytes addresses = image.Range(head.U32(28), functions * kAddressSize, kExportsOutside);
    const ImageBytes texts = image.Range(head.U32(32), names * kAddressSize, kExportsOutside);
    const ImageBytes ordinals = image.Range(head.U32(36), names * kOrdinalSize, kExportsOutside);
    for (size_t i = 0; i < names; ++i) {
        if (!image.From(texts.U32(i * kAddressSize), kExportsOutside).HoldsText(name)) continue;
        const std::uint32_t ordinal = ordinals.U16(i * kOrdinalSize);
        if (ordinal >= functions)
            throw Damaged{"its export directory names a function that it does not have"};
        const std::uint32_t address = addresses.U32(ordinal * kAddressSize);
        if (address >= directory.address && address - directory.address < directory.size)
            throw Damaged{"its entry point is in another DLL"};
        if (!image.IsCode(address)) throw Damaged{"its entry point is not code"};
        return address;
    }
    return std::nullopt;
}

constexpr char kResourcesOutside[] = "its resources lie outside the file";

// Where the first entry of a resource directory leads, or the one of that number.
std::optional<std::uint32_t> ResourceEntry(const ImageBytes& resources, std::uint32_t directory,
                                           std::optional<std::uint32_t> number) {
    constexpr std::uint64_t kHead = 16;
    constexpr size_t kEntry = 8;
    const ImageBytes head = resources.Piece(directory, kHead, kResourcesOutside);
    const size_t count = size_t{head.U16(12)} + head.U16(14);
    const ImageBytes entries = resources.Piece(directory + kHead, count * kEntry, kResourcesOutside);
    for (size_t i = 0; i < count; ++i)
        if (!number || entries.U32(i * kEntry) == *number) return entries.U32(i * kEntry + 4);
    return std::nullopt;
}

std::string FileVersion(const PortableExecutable& image) {
    constexpr size_t kResources = 2;
    const Directory directory = image.DirectoryAt(kResources);
    if (directory.address == 0) return {};
    const ImageBytes resources = image.Range(directory.address, directory.size, kResourcesOutside);
    // By type, name and language.
    const auto names = ResourceEntry(resources, 0, kVersionResource);
    if (!names || (*names & kSubdirectory) == 0) return {};
    const auto languages = ResourceEntry(resources, *names & ~kSubdirectory, std::nullopt);
    if (!languages || (*languages & kSubdirectory) == 0) return {};
    const auto leaf = ResourceEntry(resources, *languages & ~kSubdirectory, std::nullopt);
    if (!leaf || (*leaf & kSubdirectory) != 0) return {};
    const ImageBytes entry = resources.Piece(*leaf, 16, kResourcesOutside);
    const ImageBytes version = image.Range(entry.U32(0), entry.U32(4), kResourcesOutside);

    constexpr size_t kFixed = 40;  // behind lengths, type and the key "VS_VERSION_INFO"
    if (version.Size() < kFixed + 52 || version.U32(kFixed) != kFixedVersionSignature) return {};
    const std::uint32_t high = version.U32(kFixed + 8);
    const std::uint32_t low = version.U32(kFixed + 12);
    return std::to_string(high >> 16) + '.' + std::to_string(high & 0xFFFF) + '.' + std::to_string(low >> 16);
}

}  // namespace

MonitorImage InspectMonitorImage(std::span<const std::uint8_t> file) {
    MonitorImage result;
    try {
        const PortableExecutable image{ImageBytes(file)};
        if (!image.IsForX64())
            result.problem = "not a DLL for x64";
        else if (!image.IsDll())
            result.problem = "not a DLL: it is a program";
        else {
            result.version = FileVersion(image);
            result.exportsEntry = FindExport(image, kMonitorEntry).has_value();
        }
    } catch (const Damaged& damaged) {
        result.problem = std::string("not a DLL that can be loaded: ") + damaged.what;
    }
    return result;
}

}  // namespace vlm::ctl
