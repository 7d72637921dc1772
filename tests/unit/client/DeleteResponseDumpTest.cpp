// PrintDeleteResponse: the same five lines for both delete replies.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

template <class Reply>
Reply FullDeleteReply() {
    Reply reply;
    reply.set_accountid("account-1234567890");
    reply.set_code(200);
    reply.set_subcode(-7);
    reply.set_status(3);
    reply.set_message("deleted");
    return reply;
}

LineList FullDeleteReplyLines() {
    return {kDelete(kDetail, "accountID: account-1234567890"), kDelete(kDetail, "Code: 200"),
            kDelete(kDetail, "Subcode: -7"), kDelete(kDetail, "status: 3"),
            kDelete(kDetail, "message: deleted")};
}

TEST_F(DiagnosticsTest, DeleteResponseDumpsWriteFiveDetailLinesForBothReplyKinds) {
    peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteGVA>());
    EXPECT_EQ(Lines(), FullDeleteReplyLines());

    log.Clear();
    peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteSrvcAccount>());
    EXPECT_EQ(Lines(), FullDeleteReplyLines());
}

TEST_F(DiagnosticsTest, DeleteReplyWithNoFieldsSetPrintsAllFiveLines) {
    LineList const expected{kDelete(kDetail, "accountID: "), kDelete(kDetail, "Code: 0"),
                            kDelete(kDetail, "Subcode: 0"), kDelete(kDetail, "status: 0"),
                            kDelete(kDetail, "message: ")};

    peer.PrintDeleteResponse(VellmarkPB::VellmarkDeleteGVA());
    EXPECT_EQ(Lines(), expected);

    log.Clear();
    peer.PrintDeleteResponse(VellmarkPB::VellmarkDeleteSrvcAccount());
    EXPECT_EQ(Lines(), expected);
}

TEST_F(DiagnosticsTest, DeleteResponseDumpWritesOnlyTheLinesTheThresholdAllows) {
    ExpectOnlyLinesTheThresholdAllows(
        [&] { peer.PrintDeleteResponse(FullDeleteReply<VellmarkPB::VellmarkDeleteGVA>()); },
        FullDeleteReplyLines());
}

}  // namespace
