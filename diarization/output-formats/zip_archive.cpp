// SPDX-License-Identifier: Apache-2.0
#include "zip_archive.h"

#include <array>
#include <cstdint>

namespace {

constexpr uint32_t POLYNOMIAL = 0xEDB88320;  // of CRC-32, reflected (ISO 3309)

constexpr std::array<uint32_t, 256> make_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); i++) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; bit++) value = value >> 1 ^ (value & 1 ? POLYNOMIAL : 0);
        table[i] = value;
    }
    return table;
}

constexpr std::array<uint32_t, 256> TABLE = make_table();

uint32_t crc32(const std::string &bytes) {
    uint32_t crc = ~0U;
    for (const char c : bytes) crc = TABLE[(crc ^ static_cast<unsigned char>(c)) & 255] ^ crc >> 8;
    return ~crc;
}

// Little-endian numbers of so many bytes each.
std::string numbers(std::initializer_list<std::pair<int, uint64_t>> values) {
    std::string bytes;
    for (const auto &[size, value] : values)
        for (int i = 0; i < size; i++) bytes += static_cast<char>(value >> 8 * i & 255);
    return bytes;
}

// What both headers of a file have: version 2.0, UTF-8 names, stored, 1 January 1980, sizes.
std::string common_fields(const std::string &name, const std::string &content) {
    constexpr uint64_t UTF8 = 1 << 11, FIRST_DAY = 1 << 5 | 1;
    return numbers({{2, 20},
                    {2, UTF8},
                    {2, 0},
                    {2, 0},
                    {2, FIRST_DAY},
                    {4, crc32(content)},
                    {4, content.size()},
                    {4, content.size()},
                    {2, name.size()},
                    {2, 0}});
}

}  // namespace

std::string zip_archive(const std::vector<std::pair<std::string, std::string>> &files) {
    std::string archive, directory;
    for (const auto &[name, content] : files) {
        const std::string fields = common_fields(name, content);
        directory += numbers({{4, 0x02014b50}, {2, 20}}) + fields +
                     numbers({{2, 0}, {2, 0}, {2, 0}, {4, 0}, {4, archive.size()}}) + name;
        archive += numbers({{4, 0x04034b50}}) + fields + name + content;
    }
    const std::string end = numbers({{4, 0x06054b50},
                                     {4, 0},
                                     {2, files.size()},
                                     {2, files.size()},
                                     {4, directory.size()},
                                     {4, archive.size()},
                                     {2, 0}});
    return archive + directory + end;
}
