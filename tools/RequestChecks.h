#pragma once
// What vellmarkctl checks before it sends anything, so that a request the service would
// refuse, or one that would write what the user did not mean, ends with exit 2 and nothing
// sent: documents read within a bound and with their places, masked values (a document
// printed masked and read back), the service's own rules where the request shows them
// (empty identifiers, preset keys empty or repeated, service accounts without an identifier
// or with one twice), and the frame limit.
//
// Every check throws BadInput with a message that names the document's line and column
// when there is a document, and says that nothing was sent.
#include <google/protobuf/message.h>

#include <cstddef>
#include <string>

#include "tools/DocumentInput.h"

namespace Vellmark::Ctl {

// How much of a document is read for a request of the product's endpoint: a few times
// the frame limit, since JSON text is longer than the frame it makes (names, quotes,
// indentation); a document past this cannot fit one frame.
std::size_t RequestDocumentBytes();
// How much of a document is read for the admin endpoint, whose requests travel in slices:
// as much as the service takes in one admin request.
std::size_t AdminDocumentBytes();

// Reads the document at `path` ("-": standard input), at most `maxBytes`, as `message`.
// Throws BadInput when it cannot be read, is too long, is not JSON, or is not a document
// of the message's type (with the line and column of the member at fault).
Document LoadDocument(std::string const& path, google::protobuf::Message& message,
                      std::size_t maxBytes);

// Checks `request`, to be sent under `id` to the product's endpoint: no masked value, the
// service's rules for that identifier, and one frame. `document` is where it was read
// from, for the places in the messages; null when the command line made it.
void CheckRequest(unsigned int id, google::protobuf::Message const& request,
                  Document const* document);

// Checks a document for the admin endpoint: no masked value, and the service's rules for
// service accounts (each with an accountID, none twice) wherever it has them.
void CheckAdminDocument(google::protobuf::Message const& value, Document const& document);

}  // namespace Vellmark::Ctl
