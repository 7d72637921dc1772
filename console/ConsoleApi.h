#pragma once
// ConsoleApi: what each call of the page does, apart from HTTP: reads and edits of the
// store (masked out, restored in: StoreEdits.h), the export and the seed, the faults and
// the push, the capture of the frames the page shows. Every answer is JSON (a capture is
// pcapng); every refusal says why and changes nothing.
//
// Threads: any HTTP thread may call any operation; the admin link orders the commands.
#include <cstdint>
#include <string>

#include "console/AdminLink.h"
#include "console/TrafficFeed.h"

namespace Vellmark::Console {

struct Answer {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    // When set, the page saves the body as a file of this name.
    std::string filename;
};

class ConsoleApi {
public:
    ConsoleApi(AdminLink& link, TrafficFeed& feed, std::chrono::milliseconds pushBound);

    // The endpoint, the resources and the table of message identifiers, for the forms.
    Answer Overview() const;
    // A resource (a name of the resource table, or "service-accounts"), masked.
    Answer Read(std::string const& resource);
    // Checks `json` as a new value of `resource` against its schema and the stored value,
    // storing nothing.
    Answer Check(std::string const& resource, std::string const& json);
    // Replaces `resource` with `json`, its masks left as shown standing for their clear
    // values.
    Answer Write(std::string const& resource, std::string const& json);
    // The whole store, masked: a copy safe to attach to a bug report.
    Answer RedactedExport();
    // Replaces the whole store with the document `json`.
    Answer Seed(std::string const& json);
    // Runs one admin Request given as JSON: only the faults (failNext, delay,
    // dropConnections), the push and the acknowledgement report are taken.
    Answer Command(std::string const& json);
    // The kept frames numbered in `numbers` (a JSON array of numbers) as a pcapng capture.
    Answer Capture(std::string const& numbers);

    // {"error": text}.
    static std::string ErrorJson(std::string const& text);

private:
    // The stored value of `resource`, in clear, into `message`; "" or why not.
    std::string Fetch(std::string const& resource, google::protobuf::Message& message);
    // Parses `json` into `edited` and restores its masks from the stored value; "" or why
    // not, with the HTTP status in `status`.
    // Check's and Write's one path: `save` puts the prepared value into the store.
    Answer Edit(std::string const& resource, std::string const& json, bool save);
    std::string Prepare(std::string const& resource, std::string const& json,
                        google::protobuf::Message& edited, int& status);

    AdminLink& m_link;
    TrafficFeed& m_feed;
    std::chrono::milliseconds const m_pushBound;
};

}  // namespace Vellmark::Console
