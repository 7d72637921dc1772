#pragma once
// Reading the JSON documents vellmarkctl sends: from a file or standard input, never more
// than a bound (what lies past it is not read), checked as JSON while it is read (the first
// byte that cannot belong to a JSON document ends the reading), with the place of every
// member and element kept, so that a problem found later is told with its line and column.
//
// Pure of state; any thread may use it, one Document per thread.
#include <cstddef>
#include <string>
#include <unordered_map>

namespace Vellmark::Ctl {

struct Document {
    // The path, or "standard input".
    std::string source;
    std::string text;
    // Where each member (its name) and each element starts, by its place in the document
    // written as "presets[1].value.accountid": names in lower case and without '_', so
    // that a place told with the schema's names or with the JSON names finds it.
    std::unordered_map<std::string, std::size_t> places;

    // "SOURCE:LINE:COLUMN" of the member at `path` ("a.b[2].c", schema or JSON names), or
    // of the nearest one that holds it; "SOURCE" alone when none does.
    std::string Where(std::string const& path) const;
    // "SOURCE:LINE:COLUMN" of the byte at `offset` of the text.
    std::string At(std::size_t offset) const;
};

// Reads the document at `path` ("-": standard input), at most `maxBytes` of it. Throws
// BadInput, naming the source (and the line and column where there is one), when it cannot
// be read, is longer than `maxBytes` (the rest is left unread), is not one JSON value, or
// names a member twice in one object (a reader would keep one of the two without a word).
Document ReadDocument(std::string const& path, std::size_t maxBytes);

// The place in the document that protobuf's JSON parser names in `problem`, as in
// "(presets[0].value) colour: Cannot find field.": "presets[0].value.colour"; "" when it
// names none.
std::string PlaceInParserProblem(std::string const& problem);

}  // namespace Vellmark::Ctl
