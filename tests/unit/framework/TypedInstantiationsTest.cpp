// Every message type the client exchanges goes through AsyncCallback, SendRequest and
// Attach alike.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Errors.pb.h"
#include "LocalProducts.pb.h"
#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkDeleteSrvcAccount.pb.h"
#include "VellmarkGroups.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"
#include "framework/AsyncCallback.h"
#include "framework/ipc/ConnectorSocket.h"
#include "platform/testing/FakeRouter.h"
#include "platform/testing/ManualTask.h"

using namespace Tarv::Testing;

// The argument types the client instantiates AsyncCallback with.
template class AsyncCallback<void>;
template class AsyncCallback<std::shared_ptr<Network::ConnectorSocket>>;
template class AsyncCallback<VellmarkPB::sources>;
template class AsyncCallback<VellmarkPB::ProductSettings>;
template class AsyncCallback<VellmarkPB::persons>;
template class AsyncCallback<VellmarkPB::VellmarkGroups>;
template class AsyncCallback<VellmarkPB::VellmarkPresets>;
template class AsyncCallback<VellmarkPB::AccountAssociated>;
template class AsyncCallback<VellmarkPB::serviceAccounts>;
template class AsyncCallback<VellmarkPB::VellmarkDeleteGVA>;
template class AsyncCallback<VellmarkPB::VellmarkAcctOpEnvelope>;
template class AsyncCallback<VellmarkPB::Error>;

namespace {

// A message of type M with one field set, so that a delivery can be told from a default.
template <class M>
M Marked() {
    M message;
    message.GetReflection()->MutableUnknownFields(&message)->AddVarint(999, 7);
    return message;
}

template <class M>
bool IsMarked(M const& message) {
    auto const& unknown = message.GetReflection()->GetUnknownFields(message);
    return unknown.field_count() == 1 && unknown.field(0).number() == 999;
}

template <class Pair>
class TypedRequest : public ::testing::Test {};

template <class Resp, class Req>
struct RequestPair {
    using Response = Resp;
    using Request = Req;
};

using RequestPairs = ::testing::Types<
    RequestPair<VellmarkPB::sources, VellmarkPB::sources>,
    RequestPair<VellmarkPB::ProductSettings, VellmarkPB::ProductSettings>,
    RequestPair<VellmarkPB::persons, VellmarkPB::persons>,
    RequestPair<VellmarkPB::VellmarkGroups, VellmarkPB::VellmarkGroups>,
    RequestPair<VellmarkPB::VellmarkPresets, VellmarkPB::VellmarkPresets>,
    RequestPair<VellmarkPB::serviceAccounts, VellmarkPB::serviceAccounts>,
    RequestPair<VellmarkPB::VellmarkDeleteGVA, VellmarkPB::VellmarkDeleteGVA>,
    RequestPair<VellmarkPB::VellmarkAcctOpEnvelope, VellmarkPB::serviceAccounts>,
    RequestPair<VellmarkPB::VellmarkAcctOpEnvelope, VellmarkPB::VellmarkDeleteSrvcAccount>>;
TYPED_TEST_SUITE(TypedRequest, RequestPairs);

TYPED_TEST(TypedRequest, RequestCarriesItsTypeAndResponseIsDelivered) {
    using Resp = typename TypeParam::Response;
    using Req = typename TypeParam::Request;
    ManualTask task;
    FakeRouter router;
    std::vector<Resp> received;
    AsyncCallback<Resp> callback([&](Resp const& r) { received.push_back(r); }, &task);
    router.SendRequest(23u, Marked<Req>(), callback);
    ASSERT_EQ(router.Sends().size(), 1u);
    EXPECT_EQ(router.Sends()[0].payloadTypeName, Req::descriptor()->name());
    EXPECT_TRUE(IsMarked(router.SentPayload<Req>(0)));

    router.Respond(0, Marked<Resp>());
    task.RunUntilIdle();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_TRUE(IsMarked(received[0]));
}

template <class T>
class TypedAttach : public ::testing::Test {};

using AttachTypes =
    ::testing::Types<VellmarkPB::sources, VellmarkPB::ProductSettings, VellmarkPB::persons,
                     VellmarkPB::VellmarkPresets, VellmarkPB::AccountAssociated,
                     VellmarkPB::VellmarkGroups, VellmarkPB::Error>;
TYPED_TEST_SUITE(TypedAttach, AttachTypes);

TYPED_TEST(TypedAttach, NotificationIsDeliveredAndAWrongTypeIsRejected) {
    ManualTask task;
    FakeRouter router;
    std::vector<TypeParam> received;
    AsyncCallback<TypeParam> callback([&](TypeParam const& m) { received.push_back(m); }, &task);
    router.Attach(7u, callback);
    router.Push(7u, Marked<TypeParam>());
    router.Push(7u, Marked<VellmarkPB::LocalProducts>());
    task.RunUntilIdle();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_TRUE(IsMarked(received[0]));
    EXPECT_EQ(router.MismatchCount(), 1);
}

}  // namespace
