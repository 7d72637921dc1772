#pragma once
// LogWindow: at most one line of a kind a minute. Whatever a peer can repeat at will (a
// refused connection, an ignored message, a failed accept) would otherwise fill the log as
// fast as the peer sends: the first line of a minute is written, the next ones are only
// counted, and the count joins the next line written.
//
// Not thread-safe: its owner guards it.
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace Tarv {

class LogWindow {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kWindow{60};

    // Whether a line may be written at `now`: if so, how many were held back since the
    // last one written (0 for none); nothing when this one is held back and counted.
    std::optional<std::uint64_t> Admit(Clock::time_point now) {
        if (m_writtenAt && now - *m_writtenAt < kWindow) {
            ++m_held;
            return std::nullopt;
        }
        m_writtenAt = now;
        return std::exchange(m_held, 0);
    }

    // True when a minute has passed since the last line and nothing is held back: the
    // window remembers nothing worth keeping.
    bool Idle(Clock::time_point now) const {
        return m_held == 0 && (!m_writtenAt || now - *m_writtenAt >= kWindow);
    }

private:
    std::optional<Clock::time_point> m_writtenAt;
    std::uint64_t m_held = 0;
};

// "; 3 more refused since the last line" when `held` is not 0, else "".
inline std::string HeldBackSuffix(std::uint64_t held, char const* what) {
    if (held == 0) return {};
    return "; " + std::to_string(held) + " more " + what + " since the last line";
}

}  // namespace Tarv
