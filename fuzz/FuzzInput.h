#pragma once
// FuzzInput: reads a fuzzer's bytes as a sequence of small decisions and chunks. Reading
// past the end gives zeros and empty chunks, so every input is a valid program.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Vellmark::Fuzz {

class FuzzInput {
public:
    FuzzInput(std::uint8_t const* data, std::size_t size) : m_data(data), m_size(size) {}

    bool Empty() const { return m_offset >= m_size; }
    std::uint8_t Byte() { return Empty() ? 0 : m_data[m_offset++]; }
    // A chunk whose length (at most `max`) comes from the next two bytes.
    std::string Chunk(std::size_t max) {
        std::size_t length = (std::size_t(Byte()) << 8) | Byte();
        length = std::min(length % (max + 1), m_size - std::min(m_offset, m_size));
        std::string chunk(reinterpret_cast<char const*>(m_data + m_offset), length);
        m_offset += length;
        return chunk;
    }
    std::string Rest() {
        std::string rest(reinterpret_cast<char const*>(m_data + m_offset),
                         m_size - std::min(m_offset, m_size));
        m_offset = m_size;
        return rest;
    }

private:
    std::uint8_t const* m_data;
    std::size_t m_size;
    std::size_t m_offset = 0;
};

}  // namespace Vellmark::Fuzz
