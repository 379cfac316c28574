#include "platform/linux/RandomUuidGenerator.hpp"

#include <array>
#include <cstdint>

namespace bvgeo {

namespace {

std::mt19937_64 seededEngine() {
    std::random_device device;
    // A full state's worth of seed, so two processes started together still differ.
    std::array<std::uint32_t, 16> seed{};
    for (auto& word : seed) word = device();
    std::seed_seq sequence(seed.begin(), seed.end());
    return std::mt19937_64(sequence);
}

} // namespace

RandomUuidGenerator::RandomUuidGenerator() : engine_(seededEngine()) {}

std::string RandomUuidGenerator::newUuid() {
    std::array<std::uint8_t, 16> bytes{};
    {
        std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < bytes.size(); i += 8) {
            std::uint64_t word = engine_();
            for (std::size_t j = 0; j < 8; ++j) bytes[i + j] = static_cast<std::uint8_t>(word >> (8 * j));
        }
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // RFC 4122 variant

    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kHex[bytes[i] >> 4];
        text += kHex[bytes[i] & 0x0F];
    }
    return text;
}

} // namespace bvgeo
