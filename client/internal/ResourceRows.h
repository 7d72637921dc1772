#pragma once
// The shape of the client's resource rows (internal/Resources.h): what a query or a
// subscription does, apart from what it says (internal/ResourceTexts.h). Both halves are
// filled by name, with setters that each return the row with one more field set; the rows
// are constants, so the handlers read them as before, with no copy and no indirection.
#include "client/VellmarkClientAPI.h"

namespace Vellmark::Client {

// A line of the log, or none where the text is null.
struct LogText {
    char const* text = nullptr;
    DPrint::Level level = DPrint::Flow;
};

// What a query says (every line at level 2); a null text is not logged.
struct QueryTexts {
    char const* operation = nullptr;  // the function of the entry line
    char const* entry = nullptr;      // on the caller's thread
    char const* posted = nullptr;     // on the task, before anything else
    char const* queued = nullptr;     // when the request waits for a connection
    char const* sending = nullptr;    // when the request goes out
    char const* handler = nullptr;    // the function of the reply line
    char const* reply = nullptr;      // the reply handler's line
    // The reply line ends with whether the stored callback is empty (1 or 0).
    bool replyTellsIfEmpty = false;

    constexpr QueryTexts Operation(char const* name, char const* line = nullptr) const {
        auto texts = *this;
        texts.operation = name;
        texts.entry = line;
        return texts;
    }
    constexpr QueryTexts Posted(char const* line) const {
        auto texts = *this;
        texts.posted = line;
        return texts;
    }
    constexpr QueryTexts Queued(char const* line) const {
        auto texts = *this;
        texts.queued = line;
        return texts;
    }
    constexpr QueryTexts Sending(char const* line) const {
        auto texts = *this;
        texts.sending = line;
        return texts;
    }
    constexpr QueryTexts Reply(char const* name, char const* line) const {
        auto texts = *this;
        texts.handler = name;
        texts.reply = line;
        return texts;
    }
    constexpr QueryTexts ReplyTellsIfEmpty() const {
        auto texts = *this;
        texts.replyTellsIfEmpty = true;
        return texts;
    }
};

// How an update handler tells of its acknowledgement.
enum class AckLines {
    // "subscriber with message: <name> received update. Message id= <id>" before it (at the
    // announce level), "Sent VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED event" after it
    AnnouncedThenSent,
    // "Sent CloudSync received response to server: <name> received update..." after it
    SentToServer,
};

// What a subscription says; a null text is not logged.
struct SubscriptionTexts {
    char const* operation = nullptr;  // the function of the entry line
    char const* entry = nullptr;      // on the caller's thread, level 2
    char const* posted = nullptr;     // on the task, before anything else, level 2
    LogText queued;                   // when it waits for a connection
    char const* attaching = nullptr;  // when it attaches at once, level 2
    LogText replay;                   // when it attaches after a connection (AttachToIPCServer)
    char const* handler = nullptr;    // the function of the update lines
    LogText heading;                  // the update handler's first line
    AckLines ack = AckLines::SentToServer;
    DPrint::Level announceLevel = DPrint::Flow;  // for AckLines::AnnouncedThenSent

    constexpr SubscriptionTexts Operation(char const* name, char const* line = nullptr) const {
        auto texts = *this;
        texts.operation = name;
        texts.entry = line;
        return texts;
    }
    constexpr SubscriptionTexts Posted(char const* line) const {
        auto texts = *this;
        texts.posted = line;
        return texts;
    }
    constexpr SubscriptionTexts Queued(char const* line, DPrint::Level level = DPrint::Flow) const {
        auto texts = *this;
        texts.queued = {line, level};
        return texts;
    }
    constexpr SubscriptionTexts Attaching(char const* line) const {
        auto texts = *this;
        texts.attaching = line;
        return texts;
    }
    constexpr SubscriptionTexts Replay(char const* line, DPrint::Level level = DPrint::Flow) const {
        auto texts = *this;
        texts.replay = {line, level};
        return texts;
    }
    constexpr SubscriptionTexts Update(char const* name, char const* heading = nullptr,
                                       DPrint::Level level = DPrint::Flow) const {
        auto texts = *this;
        texts.handler = name;
        texts.heading = {heading, level};
        return texts;
    }
    constexpr SubscriptionTexts Acknowledgement(AckLines lines,
                                                DPrint::Level announceLevel = DPrint::Flow) const {
        auto texts = *this;
        texts.ack = lines;
        texts.announceLevel = announceLevel;
        return texts;
    }
};

}  // namespace Vellmark::Client

// A one-shot query (GetSources and its six siblings) and its reply handler: sends an empty
// T under `id`, keeps the caller's callback in `slot`, and has the reply handled by
// `handler`, which dumps it and calls the callback.
template <class T>
struct VellmarkClientAPI::QueryRow {
    unsigned int id = 0;
    Callback<T> VellmarkClientAPI::*slot = nullptr;
    void (VellmarkClientAPI::*handler)(T const&) = nullptr;
    void (*dump)(VellmarkClientAPI& client, T const& message) = nullptr;
    Vellmark::Client::QueryTexts texts;

    constexpr QueryRow Id(unsigned int value) const {
        auto row = *this;
        row.id = value;
        return row;
    }
    constexpr QueryRow Slot(Callback<T> VellmarkClientAPI::*value) const {
        auto row = *this;
        row.slot = value;
        return row;
    }
    constexpr QueryRow Handler(void (VellmarkClientAPI::*value)(T const&)) const {
        auto row = *this;
        row.handler = value;
        return row;
    }
    constexpr QueryRow Dump(void (*value)(VellmarkClientAPI&, T const&)) const {
        auto row = *this;
        row.dump = value;
        return row;
    }
    constexpr QueryRow Texts(Vellmark::Client::QueryTexts const& value) const {
        auto row = *this;
        row.texts = value;
        return row;
    }
};

// A subscription (SubscribeSourcesRequest and its seven siblings): keeps the caller's
// callback in `slot` and attaches `handler` under `id`, at once or, when made while
// disconnected, on the next connection (unless not `replayed`). The handler dumps each
// update (unless `dump` is null), calls the callback and, when `acknowledged`, tells the
// service that the update was taken in.
template <class T>
struct VellmarkClientAPI::SubscriptionRow {
    int id = 0;
    Callback<T> VellmarkClientAPI::*slot = nullptr;
    void (VellmarkClientAPI::*handler)(T const&) = nullptr;
    void (*dump)(VellmarkClientAPI& client, T const& update) = nullptr;
    bool acknowledged = true;
    bool replayed = true;
    // Once replayed, it asks for the current value, so that the subscriber hears it at once.
    bool asksCurrentValue = false;
    Vellmark::Client::SubscriptionTexts texts;

    constexpr SubscriptionRow Id(int value) const {
        auto row = *this;
        row.id = value;
        return row;
    }
    constexpr SubscriptionRow Slot(Callback<T> VellmarkClientAPI::*value) const {
        auto row = *this;
        row.slot = value;
        return row;
    }
    constexpr SubscriptionRow Handler(void (VellmarkClientAPI::*value)(T const&)) const {
        auto row = *this;
        row.handler = value;
        return row;
    }
    constexpr SubscriptionRow Dump(void (*value)(VellmarkClientAPI&, T const&)) const {
        auto row = *this;
        row.dump = value;
        return row;
    }
    constexpr SubscriptionRow Unacknowledged() const {
        auto row = *this;
        row.acknowledged = false;
        return row;
    }
    constexpr SubscriptionRow NotReplayed() const {
        auto row = *this;
        row.replayed = false;
        return row;
    }
    constexpr SubscriptionRow AsksCurrentValueWhenReplayed() const {
        auto row = *this;
        row.asksCurrentValue = true;
        return row;
    }
    constexpr SubscriptionRow Texts(Vellmark::Client::SubscriptionTexts const& value) const {
        auto row = *this;
        row.texts = value;
        return row;
    }
};

// A standing attachment that is no subscription: the GVA error notifications.
struct VellmarkClientAPI::ErrorRow {
    int id;
    void (VellmarkClientAPI::*handler)(VellmarkPB::Error const&);
    char const* attachLine;
};
