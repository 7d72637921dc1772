#pragma once
// MockVellmarkClientAPI: a gMock double of VellmarkClientAPIIF, for unit tests of code that
// takes the client by its interface. Every operation is a MOCK_METHOD; nothing is called
// back unless an expectation does it, e.g.
//
//   EXPECT_CALL(mock, GetSources(_)).WillOnce(InvokeArgument<0>(sources));
//
// runs the callback at once, on the calling thread (the real client runs it later, on its
// task). Header-only; link VellmarkClient::Testing, which brings gMock.
#include <gmock/gmock.h>

#include "client/VellmarkClientAPIIF.h"

namespace Vellmark::Testing {

class MockVellmarkClientAPI : public VellmarkClientAPIIF {
public:
    MOCK_METHOD(void, SubscribeSourcesRequest,
                (std::string const& unused, Callback<VellmarkPB::sources> const& callback),
                (override));
    MOCK_METHOD(void, SubscribeProductSettingsRequest,
                (std::string const& unused, Callback<VellmarkPB::ProductSettings> const& callback),
                (override));
    MOCK_METHOD(void, SubscribePersonsInfoRequest,
                (std::string const& unused, Callback<VellmarkPB::persons> const& callback),
                (override));
    MOCK_METHOD(void, SubscribeVoiceAccountsRequest,
                (Callback<VellmarkPB::sources> const& callback), (override));
    MOCK_METHOD(void, SubscribeIsAssociatedWithAccountRequest,
                (Callback<VellmarkPB::AccountAssociated> const& callback), (override));
    MOCK_METHOD(void, SubscribeMspHostAccountsRequest,
                (Callback<VellmarkPB::sources> const& callback), (override));
    MOCK_METHOD(void, SubscribeGroupsRequest,
                (Callback<VellmarkPB::VellmarkGroups> const& callback), (override));

    MOCK_METHOD(void, GetSources, (Callback<VellmarkPB::sources> const& callback), (override));
    MOCK_METHOD(void, GetProductSettings, (Callback<VellmarkPB::ProductSettings> const& callback),
                (override));
    MOCK_METHOD(void, GetPersonsInfo, (Callback<VellmarkPB::persons> const& callback), (override));
    MOCK_METHOD(void, GetVoiceAccounts, (Callback<VellmarkPB::sources> const& callback),
                (override));
    MOCK_METHOD(void, GetMspHostAccounts, (Callback<VellmarkPB::sources> const& callback),
                (override));
    MOCK_METHOD(void, GetGroups, (Callback<VellmarkPB::VellmarkGroups> const& callback),
                (override));

    MOCK_METHOD(void, PrintSourcesProtobuf,
                (VellmarkPB::sources const& sources, DPrint::Level const& level), (override));
    MOCK_METHOD(void, PrintGroupsProtobuf,
                (VellmarkPB::VellmarkGroups const& groups, DPrint::Level const& level), (override));
    MOCK_METHOD(VellmarkPB::serviceAccounts, RedactSensitiveFieldsSA,
                (VellmarkPB::serviceAccounts const& account), (override));

    MOCK_METHOD(void, SubscribePresetsRequest,
                (std::string const& unused, Callback<VellmarkPB::VellmarkPresets> const& callback),
                (override));
    MOCK_METHOD(void, GetPresets, (Callback<VellmarkPB::VellmarkPresets> const& callback),
                (override));
    MOCK_METHOD(void, StorePresets,
                (VellmarkPB::VellmarkPresets const& presets,
                 Callback<VellmarkPB::VellmarkPresets> const& onStored),
                (override));

    MOCK_METHOD(void, CreateGVAAccount,
                (std::string const& tarvPersonID, std::string const& providerAccountID,
                 std::string const& assistantDeviceId,
                 Callback<VellmarkPB::serviceAccounts> const& onCreated,
                 Callback<VellmarkPB::Error> const& onError),
                (override));
    MOCK_METHOD(void, DeleteGVAAccount,
                (std::string const& accountID,
                 Callback<VellmarkPB::VellmarkDeleteGVA> const& onDeleted,
                 Callback<VellmarkPB::Error> const& onError),
                (override));
    MOCK_METHOD(void, UpdateGVAAssistantDeviceId,
                (std::string const& assistantDeviceId,
                 Callback<VellmarkPB::serviceAccounts> const& onUpdated,
                 Callback<VellmarkPB::Error> const& onError),
                (override));

    MOCK_METHOD(void, CreateServiceAccount,
                (VellmarkPB::serviceAccounts const& account,
                 Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                 Callback<VellmarkPB::Error> const& onError),
                (override));
    MOCK_METHOD(void, DeleteServiceAccount,
                (std::string const& accountID,
                 Callback<VellmarkPB::VellmarkDeleteSrvcAccount> const& onSuccess,
                 Callback<VellmarkPB::Error> const& onError),
                (override));
    MOCK_METHOD(void, UpdateServiceAccount,
                (VellmarkPB::serviceAccounts const& account,
                 Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                 Callback<VellmarkPB::Error> const& onError),
                (override));

    MOCK_METHOD(bool, IsConnected, (), (override));
};

}  // namespace Vellmark::Testing
