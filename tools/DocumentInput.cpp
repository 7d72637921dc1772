#include "tools/DocumentInput.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <istream>
#include <nlohmann/json.hpp>
#include <streambuf>
#include <unordered_set>
#include <vector>

#include "tools/Command.h"

namespace Vellmark::Ctl {
namespace {

constexpr std::size_t kChunkBytes = 64 * 1024;

// A stream of the bytes of a file descriptor that keeps what it hands out in `text` and
// ends (as at the end of the file) once more than `maxBytes` have come: the parser reading
// it stops there, and nothing further is read.
class BoundedReader : public std::streambuf {
public:
    BoundedReader(int fd, std::size_t maxBytes, std::string& text)
        : m_fd(fd), m_maxBytes(maxBytes), m_text(text) {}

    // How many bytes the reader of the stream has taken.
    std::size_t Taken() const { return m_base + static_cast<std::size_t>(gptr() - eback()); }
    bool TooLong() const { return m_tooLong; }
    int Error() const { return m_error; }

protected:
    int_type underflow() override {
        if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
        if (m_tooLong || m_error != 0 || m_ended) return traits_type::eof();
        // One byte more than the bound tells a document that is too long.
        std::size_t const room = m_maxBytes + 1 - m_text.size();
        std::size_t const want = std::min(kChunkBytes, room);
        std::size_t const before = m_text.size();
        m_text.resize(before + want);
        ssize_t got;
        do {
            got = ::read(m_fd, &m_text[before], want);
        } while (got < 0 && errno == EINTR);
        if (got <= 0) {
            m_text.resize(before);
            if (got < 0) m_error = errno;
            m_ended = true;
            return traits_type::eof();
        }
        m_text.resize(before + static_cast<std::size_t>(got));
        if (m_text.size() > m_maxBytes) {
            m_tooLong = true;
            return traits_type::eof();
        }
        m_base = before;
        setg(&m_text[before], &m_text[before], &m_text[before] + got);
        return traits_type::to_int_type(*gptr());
    }

private:
    int const m_fd;
    std::size_t const m_maxBytes;
    std::string& m_text;
    std::size_t m_base = 0;
    bool m_tooLong = false;
    bool m_ended = false;
    int m_error = 0;
};

// A member's name as places are keyed: lower case, without '_'.
std::string Folded(std::string const& name) {
    std::string folded;
    folded.reserve(name.size());
    for (char c : name) {
        if (c != '_') folded += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return folded;
}

// `path` ("a.b[2].c") with each name folded.
std::string FoldedPath(std::string const& path) {
    std::string folded;
    std::string name;
    auto const flush = [&] {
        folded += Folded(name);
        name.clear();
    };
    for (char c : path) {
        if (c == '.' || c == '[' || c == ']') {
            flush();
            folded += c;
        } else {
            name += c;
        }
    }
    flush();
    return folded;
}

using Json = nlohmann::json;

// Notes where each member and element starts, and refuses a name given twice in one object.
class PlaceRecorder : public nlohmann::json_sax<Json> {
public:
    PlaceRecorder(std::string const& text, BoundedReader const& reader,
                  std::unordered_map<std::string, std::size_t>& places)
        : m_text(text), m_reader(reader), m_places(places) {}

    bool null() override { return Value(); }
    bool boolean(bool) override { return Value(); }
    bool number_integer(Json::number_integer_t) override { return Value(); }
    bool number_unsigned(Json::number_unsigned_t) override { return Value(); }
    bool number_float(Json::number_float_t, Json::string_t const&) override { return Value(); }
    bool string(Json::string_t&) override { return Value(); }
    bool binary(Json::binary_t&) override { return Value(); }

    bool start_object(std::size_t) override {
        std::string path = Enter();
        m_open.push_back(Open{false, std::move(path), 0, {}, {}});
        return Taken();
    }
    bool key(Json::string_t& name) override {
        auto& object = m_open.back();
        std::size_t const at = Start(",");
        if (!object.names.insert(name).second) {
            m_problemAt = at;
            m_problem = "the member \"" + name + "\" is given twice in one object";
            return false;
        }
        object.member = (object.path.empty() ? "" : object.path + ".") + Folded(name);
        m_places.emplace(object.member, at);
        return Taken();
    }
    bool end_object() override {
        m_open.pop_back();
        return Taken();
    }
    bool start_array(std::size_t) override {
        std::string path = Enter();
        m_open.push_back(Open{true, std::move(path), 0, {}, {}});
        return Taken();
    }
    bool end_array() override {
        m_open.pop_back();
        return Taken();
    }
    bool parse_error(std::size_t position, std::string const&,
                     nlohmann::detail::exception const& error) override {
        // "[json.exception.parse_error.101] parse error at line 1, column 1: syntax error
        // ..." without what the place says again.
        std::string what = error.what();
        auto const colon = what.find(": ");
        if (colon != std::string::npos) what = what.substr(colon + 2);
        m_problemAt = position > 0 ? position - 1 : 0;
        m_problem = "not JSON: " + what;
        return false;
    }

    std::string const& Problem() const { return m_problem; }
    std::size_t ProblemAt() const { return m_problemAt; }

private:
    struct Open {
        bool array;
        std::string path;
        std::size_t next;    // arrays: the index of the next element
        std::string member;  // objects: the place of the member being read
        std::unordered_set<std::string> names;
    };

    // The start of the next token at or after the last one taken, past `skipped` and
    // white space.
    std::size_t Start(char const* skipped) const {
        std::size_t at = m_last;
        while (at < m_text.size() && (std::isspace(static_cast<unsigned char>(m_text[at])) ||
                                      std::strchr(skipped, m_text[at]))) {
            ++at;
        }
        return at;
    }
    // The place of a value that starts now; an element's start is noted.
    std::string Enter() {
        if (m_open.empty()) return {};
        auto& holder = m_open.back();
        if (!holder.array) return holder.member;
        std::string path = holder.path + "[" + std::to_string(holder.next++) + "]";
        m_places.emplace(path, Start(",:"));
        return path;
    }
    bool Value() {
        Enter();
        return Taken();
    }
    bool Taken() {
        m_last = m_reader.Taken();
        return true;
    }

    std::string const& m_text;
    BoundedReader const& m_reader;
    std::unordered_map<std::string, std::size_t>& m_places;
    std::vector<Open> m_open;
    std::size_t m_last = 0;
    std::string m_problem;
    std::size_t m_problemAt = 0;
};

}  // namespace

std::string Document::At(std::size_t offset) const {
    offset = std::min(offset, text.size());
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t i = 0; i < offset; ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            ++column;  // a character, not the continuation of one
        }
    }
    return source + ":" + std::to_string(line) + ":" + std::to_string(column);
}

std::string Document::Where(std::string const& path) const {
    std::string place = FoldedPath(path);
    while (!place.empty()) {
        auto const found = places.find(place);
        if (found != places.end()) return At(found->second);
        // The holder: without the last index or the last name.
        std::size_t const cut = place.find_last_of(".[");
        place = place.substr(0, cut == std::string::npos ? 0 : cut);
    }
    return source;
}

Document ReadDocument(std::string const& path, std::size_t maxBytes) {
    Document document;
    document.source = path == "-" ? "standard input" : path;
    int fd = STDIN_FILENO;
    if (path != "-") {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) throw BadInput(path + ": cannot read: " + std::strerror(errno));
    }
    BoundedReader reader(fd, maxBytes, document.text);
    PlaceRecorder recorder(document.text, reader, document.places);
    bool parsed = false;
    {
        std::istream stream(&reader);
        parsed = Json::sax_parse(stream, &recorder, Json::input_format_t::json, true, false);
    }
    if (fd != STDIN_FILENO) ::close(fd);
    if (reader.Error() != 0) {
        throw BadInput(document.source + ": cannot read: " + std::strerror(reader.Error()));
    }
    if (reader.TooLong()) {
        throw BadInput(document.source + ": longer than " + std::to_string(maxBytes) +
                       " bytes, more than a request can carry; the rest was not read and "
                       "nothing was sent");
    }
    if (!parsed) {
        std::size_t const at = recorder.ProblemAt();
        // The parser takes a NUL byte for the end of the input, which would mislead.
        bool const nul = at < document.text.size() && document.text[at] == '\0';
        throw BadInput(document.At(at) + ": " +
                       (nul                          ? std::string("not JSON: a NUL byte")
                        : recorder.Problem().empty() ? std::string("not JSON")
                                                     : recorder.Problem()));
    }
    return document;
}

std::string PlaceInParserProblem(std::string const& problem) {
    // "(field[0]) numbr: Cannot find field." or "(field[1].number): invalid value ...";
    // at the top, "numbr: Cannot find field.".
    if (problem.empty()) return {};
    if (problem.front() != '(') {
        auto const colon = problem.find(": ");
        std::string const name = problem.substr(0, colon);
        bool const oneWord = colon != std::string::npos && !name.empty() &&
                             name.find_first_of(" .") == std::string::npos;
        return oneWord ? name : std::string();
    }
    auto const close = problem.find(')');
    if (close == std::string::npos) return {};
    std::string place = problem.substr(1, close - 1);
    if (problem.compare(close, 2, ") ") == 0) {
        auto const colon = problem.find(':', close);
        if (colon != std::string::npos) {
            std::string const name = problem.substr(close + 2, colon - close - 2);
            if (!name.empty() && name.find(' ') == std::string::npos) {
                place += (place.empty() ? "" : ".") + name;
            }
        }
    }
    return place;
}

}  // namespace Vellmark::Ctl
