#include "platform/log/Redact.h"

#include <algorithm>

namespace Redact {

std::string RedactID(std::string const& id, char const& fill) {
    std::size_t const clear = std::min<std::size_t>(4, id.size() / 2);
    std::string masked(id.size() - clear, fill);
    masked.append(id, id.size() - clear, clear);
    return masked;
}

std::string RedactTokens(std::string const& token, unsigned int const& n) {
    std::size_t const size = token.size();
    std::size_t const kept = size >= 32 ? 4 : size >= 16 ? 2 : 0;  // in clear at each end
    std::size_t const length = std::min<std::size_t>(size, n);
    if (length <= 2 * kept) return std::string(length, '*');

    std::string masked;
    masked.reserve(length);
    masked.append(token, 0, kept);
    masked.append(length - 2 * kept, '*');
    masked.append(token, size - kept, kept);
    return masked;
}

}  // namespace Redact
