#ifndef LIBCOMMON_CORE_PACKET_H
#define LIBCOMMON_CORE_PACKET_H

// A growable byte packet exchanged with a tool, and its CRC-16.

#include <cstdint>
#include <vector>

class Packet : public std::vector<unsigned char> {
public:
    using std::vector<unsigned char>::vector;
    Packet() = default;

    // 16-bit values are little-endian: low byte first. Indexing past the
    // end throws std::out_of_range.
    void append16(std::uint16_t value);
    std::uint16_t get16(size_type index) const;
    void set16(size_type index, std::uint16_t value);
};

// CRC-16/MCRF4XX: reflected polynomial 0x8408, start 0xFFFF, no final
// inversion. In a packet the CRC occupies the last two bytes, low byte first.
class TarnToolsCrc16 {
public:
    static unsigned short getCrc(const Packet& packet);
    static void addCrc(Packet& packet);
    static void updateCrc(Packet& packet);
    static bool checkCrc(const Packet& packet);
    // CRC over a byte range; the packet operations are built on it.
    static unsigned short compute(const unsigned char* data, std::size_t size,
                                  unsigned short crc = 0xFFFF);
    static const unsigned short* table();
};

#endif
