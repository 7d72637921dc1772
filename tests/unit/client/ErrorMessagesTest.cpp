// CreateErrorMsg and PrintErrorMessage: the error for refused input, and its log form.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

class ErrorMessagesTest : public DiagnosticsTest {};

TEST_F(ErrorMessagesTest, EmptyAccountIdCodeGivesCodeSixSubcodeAndInputDataErrorMessage) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, VellmarkPB::CODE_EMPTY_ACCOUNT_ID);

    EXPECT_EQ(error.code(), 6);
    EXPECT_EQ(error.subcode(), 1005);
    EXPECT_EQ(error.message().rfind("Input data error: ", 0), 0u) << error.message();
    EXPECT_EQ(error.message(), "Input data error: CODE_EMPTY_ACCOUNT_ID");
}

TEST_F(ErrorMessagesTest, EachRefusedInputCodeIsNamedInTheMessage) {
    struct Case {
        VellmarkPB::Code code;
        int number;
        char const* message;
    };
    for (auto const& c :
         {Case{VellmarkPB::CODE_EMPTY_PERSON_ID, 1004, "Input data error: CODE_EMPTY_PERSON_ID"},
          Case{VellmarkPB::CODE_EMPTY_ACCOUNT_ID, 1005, "Input data error: CODE_EMPTY_ACCOUNT_ID"},
          Case{VellmarkPB::CODE_EMPTY_ASSISTANT_DEVICE_ID, 1012,
               "Input data error: CODE_EMPTY_ASSISTANT_DEVICE_ID"}}) {
        SCOPED_TRACE(c.message);
        VellmarkPB::Error error;
        peer.CreateErrorMsg(error, c.code);
        EXPECT_EQ(error.code(), 6);
        EXPECT_EQ(error.subcode(), c.number);
        EXPECT_EQ(error.message(), c.message);
    }
}

TEST_F(ErrorMessagesTest, CodeWithoutNameGivesTheBareInputDataErrorMessage) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, static_cast<VellmarkPB::Code>(1010));

    EXPECT_EQ(error.code(), 6);
    EXPECT_EQ(error.subcode(), 1010);
    EXPECT_TRUE(error.has_message());
    EXPECT_EQ(error.message(), "Input data error: ");
}

TEST_F(ErrorMessagesTest, CreateErrorMsgSetsOnlyCodeSubcodeAndMessage) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, VellmarkPB::CODE_EMPTY_PERSON_ID);

    EXPECT_TRUE(error.has_code());
    EXPECT_TRUE(error.has_subcode());
    EXPECT_TRUE(error.has_message());
    EXPECT_FALSE(error.has_productguid());
    EXPECT_FALSE(error.has_messageid());
}

TEST_F(ErrorMessagesTest, CreateErrorMsgLogsItsNameAtLevelThree) {
    VellmarkPB::Error error;

    peer.CreateErrorMsg(error, VellmarkPB::CODE_EMPTY_ACCOUNT_ID);

    EXPECT_EQ(Lines(), LineList{ClientLine(DPrint::Info, "CreateErrorMsg", "CreateErrorMsg")});
}

TEST_F(ErrorMessagesTest, PrintErrorMessageWritesTheSetFieldsInOrderButNotTheMessageId) {
    VellmarkPB::Error error;
    error.set_message("account missing");
    error.set_productguid("guid-1234");
    error.set_messageid(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);
    error.set_code(6);
    error.set_subcode(1005);

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(),
              (LineList{kError(kDetail, "Error code: 6"), kError(kDetail, "Error subcode: 1005"),
                        kError(kDetail, "Error message: account missing"),
                        kError(kDetail, "Product GUID: guid-1234")}));
}

TEST_F(ErrorMessagesTest, PrintErrorMessageOfAnEmptyErrorPrintsNothing) {
    peer.PrintErrorMessage(VellmarkPB::Error());

    EXPECT_EQ(Lines(), LineList{});
}

TEST_F(ErrorMessagesTest, PrintErrorMessageWithOnlySubcodeSetPrintsTheOneSubcodeLine) {
    VellmarkPB::Error error;
    error.set_subcode(1012);

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(), LineList{kError(kDetail, "Error subcode: 1012")});
}

TEST_F(ErrorMessagesTest, PrintErrorMessagePrintsPresentButEmptyOrZeroFields) {
    VellmarkPB::Error error;
    error.set_code(0);
    error.set_message("");

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(),
              (LineList{kError(kDetail, "Error code: 0"), kError(kDetail, "Error message: ")}));
}

TEST_F(ErrorMessagesTest, PrintErrorMessageWritesNothingBelowDetail) {
    VellmarkPB::Error error;
    error.set_code(6);
    error.set_subcode(1005);
    error.set_message("account missing");
    error.set_productguid("guid-1234");
    VellmarkClientLog().SetThreshold(DPrint::Info);

    peer.PrintErrorMessage(error);

    EXPECT_EQ(Lines(), LineList{});
}

}  // namespace
