#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace ravelin::test {

/// Small real pictures, one in each format that matters.
class Pictures {
 public:
  /// One pixel.
  static std::string png() {
    static constexpr unsigned char BYTES[] = {
        0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x48,
        0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00,
        0x00, 0x1F, 0x15, 0xC4, 0x89, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x44, 0x41, 0x54, 0x78,
        0x9C, 0x63, 0xF8, 0xDF, 0xC0, 0xF0, 0x1F, 0x00, 0x06, 0x80, 0x02, 0x7F, 0x10, 0x4C,
        0x1B, 0xE1, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};
    return {reinterpret_cast<const char*>(BYTES), sizeof BYTES};
  }

  /// 16 by 16 pixels of one colour, uncompressed.
  static std::string ico() {
    constexpr std::uint32_t SIDE = 16;
    std::string bitmap = little(40, 4) + little(SIDE, 4) + little(SIDE * 2, 4) + little(1, 2) +
                         little(32, 2) + std::string(24, '\0');
    for (std::uint32_t pixel = 0; pixel < SIDE * SIDE; ++pixel) {
      bitmap += little(0xFF2060A0, 4);
    }
    bitmap += std::string(std::size_t{SIDE} * 4, '\0');
    const auto size = static_cast<std::uint32_t>(bitmap.size());
    return little(0, 2) + little(1, 2) + little(1, 2) + little(SIDE, 1) + little(SIDE, 1) +
           little(0, 2) + little(1, 2) + little(32, 2) + little(size, 4) + little(22, 4) + bitmap;
  }

  /// The one pixel in an ICNS file.
  static std::string icns() {
    const std::string picture = png();
    const auto size = static_cast<std::uint32_t>(picture.size());
    return "icns" + big(size + 16) + "ic08" + big(size + 8) + picture;
  }

  static void write(const std::string& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
  }

 private:
  static std::string little(std::uint32_t number, int bytes) {
    std::string text;
    for (int index = 0; index < bytes; ++index) {
      text += static_cast<char>(number >> (8 * index) & 0xFFU);
    }
    return text;
  }

  static std::string big(std::uint32_t number) {
    const std::string text = little(number, 4);
    return {text.rbegin(), text.rend()};
  }
};

}  // namespace ravelin::test
