// monitor --id and --connection: which frames are shown.
#include <gtest/gtest.h>

#include "tools/MonitorFormat.h"

namespace Vellmark::Ctl {
namespace {

Vellmark::Admin::TrafficEvent Event(unsigned int id, std::uint64_t session) {
    Vellmark::Admin::TrafficEvent event;
    event.set_messageid(id);
    event.set_session(session);
    return event;
}

TEST(MonitorFilter, ShowsEveryFrameWhenNothingIsAskedFor) {
    MonitorFilter const all;
    EXPECT_TRUE(all.Shows(Event(1, 1)));
    EXPECT_TRUE(all.Shows(Event(31, 9)));
}

TEST(MonitorFilter, ShowsTheFramesOfTheIdentifiersAndConnectionsAskedFor) {
    MonitorFilter filter;
    filter.ids = {3, 31};
    EXPECT_TRUE(filter.Shows(Event(3, 1)));
    EXPECT_TRUE(filter.Shows(Event(31, 2)));
    EXPECT_FALSE(filter.Shows(Event(1, 1)));
    filter.connections = {2};
    EXPECT_FALSE(filter.Shows(Event(3, 1)));
    EXPECT_TRUE(filter.Shows(Event(31, 2)));
    EXPECT_FALSE(filter.Shows(Event(1, 2)));
}

}  // namespace
}  // namespace Vellmark::Ctl
