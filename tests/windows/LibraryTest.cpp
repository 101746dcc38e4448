#include <gtest/gtest.h>

#include <windows.h>

#include <winver.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

std::vector<char> contents(const char* path) {
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

/// The library's file, read as the loader reads it.
class Image {
public:
    Image() : bytes(contents(VELORINE_LIBRARY)) {
        IMAGE_DOS_HEADER dos{};
        read(dos, 0);
        read(headers, static_cast<std::size_t>(dos.e_lfanew));
        const std::size_t first = static_cast<std::size_t>(dos.e_lfanew) + sizeof headers;
        for (std::size_t i = 0; i < headers.FileHeader.NumberOfSections; ++i) {
            IMAGE_SECTION_HEADER section{};
            read(section, first + i * sizeof section);
            sections.push_back(section);
        }
    }

    template <typename Record>
    Record at(DWORD address) const {
        Record record{};
        read(record, offsetOf(address));
        return record;
    }

    std::string text(DWORD address) const { return bytes.data() + offsetOf(address); }

    IMAGE_DATA_DIRECTORY directory(int index) const {
        return headers.OptionalHeader.DataDirectory[index];
    }

    std::set<std::string> imports() const {
        std::set<std::string> names;
        DWORD address = directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress;
        for (;; address += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
            const auto entry = at<IMAGE_IMPORT_DESCRIPTOR>(address);
            if (entry.Name == 0) return names;
            std::string name = text(entry.Name);
            std::transform(name.begin(), name.end(), name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            names.insert(name);
        }
    }

    std::vector<std::string> exports() const {
        const auto table =
            at<IMAGE_EXPORT_DIRECTORY>(directory(IMAGE_DIRECTORY_ENTRY_EXPORT).VirtualAddress);
        EXPECT_EQ(table.NumberOfFunctions, table.NumberOfNames) << "nothing without a name";
        std::vector<std::string> names;
        for (DWORD i = 0; i < table.NumberOfNames; ++i)
            names.push_back(text(at<DWORD>(table.AddressOfNames + i * sizeof(DWORD))));
        return names;
    }

    IMAGE_NT_HEADERS32 headers{};

private:
    template <typename Record>
    void read(Record& record, std::size_t offset) const {
        ASSERT_LE(offset + sizeof record, bytes.size());
        std::memcpy(&record, bytes.data() + offset, sizeof record);
    }

    std::size_t offsetOf(DWORD address) const {
        for (const IMAGE_SECTION_HEADER& section : sections)
            if (address >= section.VirtualAddress &&
                address < section.VirtualAddress + section.SizeOfRawData)
                return address - section.VirtualAddress + section.PointerToRawData;
        ADD_FAILURE() << "no section holds " << address;
        return 0;
    }

    std::vector<char> bytes;
    std::vector<IMAGE_SECTION_HEADER> sections;
};

/// The library's resources, without running it.
class Resources {
public:
    Resources() : module(LoadLibraryExA(VELORINE_LIBRARY, nullptr, LOAD_LIBRARY_AS_DATAFILE)) {}
    ~Resources() { FreeLibrary(module); }
    Resources(const Resources&) = delete;
    Resources& operator=(const Resources&) = delete;

    std::vector<char> bytes(int id, const char* type) const {
        HRSRC found = FindResourceA(module, MAKEINTRESOURCEA(id), type);
        if (!found) return {};
        const auto* data = static_cast<const char*>(LockResource(LoadResource(module, found)));
        return {data, data + SizeofResource(module, found)};
    }

private:
    HMODULE module;
};

TEST(Library, IsOf32Bits) {
    const Image image;
    EXPECT_EQ(image.headers.FileHeader.Machine, IMAGE_FILE_MACHINE_I386);
    EXPECT_TRUE(image.headers.FileHeader.Characteristics & IMAGE_FILE_DLL);
}

TEST(Library, ImportsTheSystemsLibrariesAlone) {
    const std::set<std::string> known{"advapi32.dll", "dsound.dll", "gdi32.dll",  "kernel32.dll",
                                      "msvcrt.dll",   "ole32.dll",  "user32.dll", "winmm.dll"};
    const std::set<std::string> imports = Image{}.imports();
    EXPECT_TRUE(imports.count("kernel32.dll"));
    for (const std::string& name : imports)
        EXPECT_TRUE(known.count(name)) << name;
}

TEST(Library, ExportsItsOneEntryUndecorated) {
    EXPECT_EQ(Image{}.exports(), std::vector<std::string>{"winampGetOutModule"});
}

TEST(Library, CarriesThePreset) {
    const std::vector<char> preset = contents(VELORINE_PRESET_FILE);
    ASSERT_EQ(preset.size(), 5562u);
    EXPECT_EQ(Resources{}.bytes(110, "BIN"), preset);
}

TEST(Library, CarriesItsVersion) {
    DWORD unused = 0;
    const DWORD size = GetFileVersionInfoSizeA(VELORINE_LIBRARY, &unused);
    ASSERT_GT(size, 0u);
    std::vector<std::byte> block(size);
    ASSERT_TRUE(GetFileVersionInfoA(VELORINE_LIBRARY, 0, size, block.data()));

    void* found = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\", &found, &length));
    const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(found);
    EXPECT_EQ(fixed.dwFileVersionMS, 0x1'0000u);
    EXPECT_EQ(fixed.dwFileType, static_cast<DWORD>(VFT_DLL));

    ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904B0\\OriginalFilename", &found,
                               &length));
    EXPECT_STREQ(static_cast<const char*>(found), "out_velorine.dll");
}

} // namespace
} // namespace velorine::test
