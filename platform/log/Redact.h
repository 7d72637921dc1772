#pragma once
// Redact: masked forms of identifiers and tokens, safe to write to a log.
//
// Both functions are pure: the same input always gives the same output, and any thread
// may call them at once.
#include <string>

#include "platform/TarvExport.h"

namespace Redact {

// Masks an identifier. Only its last min(4, size / 2) characters stay in clear, so at
// most four and never more than half of it; every other character becomes `fill`. The
// result has the identifier's length; an empty identifier gives an empty string.
//   RedactID("1234567890", '-') == "------7890",  RedactID("abc", '-') == "--c"
TARV_EXPORT std::string RedactID(std::string const& id, char const& fill);

// Masks a token and bounds its length by `n`. A token of 32 characters or more keeps its
// first 4 and last 4 in clear, one of 16 to 31 its first 2 and last 2, a shorter one
// nothing; everything between becomes '*'. The middle of a token is never in clear.
// When the token is longer than `n`, the masked middle is shortened so that the result
// has exactly `n` characters; when `n` leaves no room for a masked middle (n <= the
// characters kept in clear), the result is `n` '*' characters. An empty token gives an
// empty string.
TARV_EXPORT std::string RedactTokens(std::string const& token, unsigned int const& n);

}  // namespace Redact
