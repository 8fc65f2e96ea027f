#include "libcommon/core/packet.h"

#include <array>
#include <stdexcept>

void Packet::append16(std::uint16_t value) {
    push_back(static_cast<unsigned char>(value & 0xFF));
    push_back(static_cast<unsigned char>(value >> 8));
}

std::uint16_t Packet::get16(size_type index) const {
    return static_cast<std::uint16_t>(at(index) | (at(index + 1) << 8));
}

void Packet::set16(size_type index, std::uint16_t value) {
    at(index) = static_cast<unsigned char>(value & 0xFF);
    at(index + 1) = static_cast<unsigned char>(value >> 8);
}

namespace {

std::array<unsigned short, 256> makeTable() {
    std::array<unsigned short, 256> t{};
    for (unsigned int i = 0; i < 256; ++i) {
        unsigned int crc = i;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
        t[i] = static_cast<unsigned short>(crc);
    }
    return t;
}

const std::array<unsigned short, 256> kTable = makeTable();

}  // namespace

const unsigned short* TarnToolsCrc16::table() { return kTable.data(); }

unsigned short TarnToolsCrc16::compute(const unsigned char* data, std::size_t size,
                                       unsigned short crc) {
    for (std::size_t i = 0; i < size; ++i) {
        crc = static_cast<unsigned short>((crc >> 8) ^ kTable[(crc ^ data[i]) & 0xFF]);
    }
    return crc;
}

unsigned short TarnToolsCrc16::getCrc(const Packet& packet) {
    return compute(packet.data(), packet.size());
}

void TarnToolsCrc16::addCrc(Packet& packet) { packet.append16(getCrc(packet)); }

void TarnToolsCrc16::updateCrc(Packet& packet) {
    if (packet.size() < 2) {
        // No room for a CRC: the same failure that indexing past the end gives.
        throw std::out_of_range("TarnToolsCrc16::updateCrc: packet holds fewer than 2 bytes");
    }
    packet.set16(packet.size() - 2, compute(packet.data(), packet.size() - 2));
}

bool TarnToolsCrc16::checkCrc(const Packet& packet) {
    if (packet.size() < 2) return false;
    return packet.get16(packet.size() - 2) == compute(packet.data(), packet.size() - 2);
}
