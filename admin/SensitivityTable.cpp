// The class of every text field of the schema, the service's messages and the admin
// protocol. A field added to any of them fails the table's test until it is named here.
#include <unordered_map>

#include "admin/Sensitivity.h"

namespace Vellmark::Admin {
namespace {

using S = Sensitivity;

// By full field name. Decisions worth a word:
// - A source's `id` is the account's identifier when the service mirrors an account as a
//   source, so it is an account identifier.
// - `providerAccountID`, `uid` and `assistantDeviceId` identify an account (or the device
//   registered with it) at a provider: account identifiers.
// - Product identifiers and GUIDs name a device, not a person or an account, and every
//   log of the product names them to tell devices apart: not sensitive.
// - Fields that carry whole JSON documents or opaque payloads may hold anything, tokens
//   included, so they are classed as credentials and never shown as they are.
std::unordered_map<std::string, Sensitivity> const& Table() {
    static std::unordered_map<std::string, Sensitivity> const table = {
        // VellmarkServiceAccounts.proto
        {"VellmarkPB.serviceAccounts.tarvPersonID", S::PersonId},
        {"VellmarkPB.serviceAccounts.accountID", S::AccountId},
        {"VellmarkPB.serviceAccounts.accountType", S::NotSensitive},
        {"VellmarkPB.serviceAccounts.provider", S::NotSensitive},
        {"VellmarkPB.serviceAccounts.providerAccountID", S::AccountId},
        {"VellmarkPB.serviceAccounts.name", S::FreeText},
        {"VellmarkPB.serviceAccounts.updatedOn", S::NotSensitive},
        {"VellmarkPB.serviceAccounts.createdOn", S::NotSensitive},
        {"VellmarkPB.serviceAccounts.productID", S::NotSensitive},
        {"VellmarkPB.Tokens.access_token", S::Token},
        {"VellmarkPB.Tokens.access_token_expiration", S::NotSensitive},
        {"VellmarkPB.Tokens.refresh_token", S::Token},
        {"VellmarkPB.Tokens.refresh_token_expiration", S::NotSensitive},
        {"VellmarkPB.Tokens.accessToken", S::Token},
        {"VellmarkPB.Tokens.refreshToken", S::Token},
        {"VellmarkPB.Tokens.idToken", S::Token},
        {"VellmarkPB.Tokens.expiresIn", S::NotSensitive},
        {"VellmarkPB.Tokens.signatureTimestamp", S::NotSensitive},
        {"VellmarkPB.Tokens.uidSignature", S::Token},
        {"VellmarkPB.Tokens.uid", S::AccountId},
        {"VellmarkPB.Attributes.email", S::UserName},
        {"VellmarkPB.Attributes.subscriptionStatus", S::NotSensitive},
        {"VellmarkPB.Attributes.language", S::NotSensitive},
        {"VellmarkPB.Attributes.WuWModel", S::NotSensitive},
        {"VellmarkPB.Attributes.WuWord", S::FreeText},
        {"VellmarkPB.Attributes.assistantDeviceId", S::AccountId},
        {"VellmarkPB.Attributes.collectData", S::NotSensitive},
        // VellmarkDeleteSrvcAccount.proto, VellmarkDeleteGVA.proto
        {"VellmarkPB.VellmarkDeleteSrvcAccount.accountID", S::AccountId},
        {"VellmarkPB.VellmarkDeleteSrvcAccount.message", S::FreeText},
        {"VellmarkPB.VellmarkDeleteGVA.accountID", S::AccountId},
        {"VellmarkPB.VellmarkDeleteGVA.message", S::FreeText},
        // VellmarkSource.proto
        {"VellmarkPB.VellmarkSource.source.id", S::AccountId},
        {"VellmarkPB.VellmarkSource.source.type", S::NotSensitive},
        {"VellmarkPB.VellmarkSource.source.name", S::FreeText},
        {"VellmarkPB.VellmarkSource.source.username", S::UserName},
        {"VellmarkPB.VellmarkSource.source.sourcename", S::FreeText},
        {"VellmarkPB.VellmarkSource.source.tarvpersonid", S::PersonId},
        {"VellmarkPB.VellmarkSource.source.Credential.type", S::NotSensitive},
        {"VellmarkPB.VellmarkSource.source.Credential.text", S::Token},
        {"VellmarkPB.VellmarkSource.source.Name.text", S::Wrapped},
        {"VellmarkPB.VellmarkSource.source.SourceProviderId.text", S::NotSensitive},
        {"VellmarkPB.VellmarkSource.source.AccountId.text", S::AccountId},
        {"VellmarkPB.VellmarkSource.source.UpdatedOn.text", S::NotSensitive},
        {"VellmarkPB.VellmarkSource.source.CreatedOn.text", S::NotSensitive},
        // VellmarkSourceSettings.proto
        {"VellmarkPB.sourceSetting.KeyName.text", S::NotSensitive},
        {"VellmarkPB.sourceSetting.Value.text", S::FreeText},
        // VellmarkPreset.proto
        {"VellmarkPB.Actions.actionType", S::NotSensitive},
        {"VellmarkPB.metaData.subType", S::NotSensitive},
        {"VellmarkPB.metaData.name", S::FreeText},
        {"VellmarkPB.metaData.image", S::NotSensitive},
        {"VellmarkPB.metaData.accountID", S::AccountId},
        {"VellmarkPB.Value.createdOn", S::NotSensitive},
        {"VellmarkPB.Value.updatedOn", S::NotSensitive},
        {"VellmarkPB.contentItem.containerArt", S::NotSensitive},
        {"VellmarkPB.contentItem.location", S::NotSensitive},
        {"VellmarkPB.contentItem.name", S::FreeText},
        {"VellmarkPB.contentItem.source", S::NotSensitive},
        {"VellmarkPB.contentItem.sourceAccount", S::AccountId},
        {"VellmarkPB.contentItem.type", S::NotSensitive},
        {"VellmarkPB.Presets.key", S::NotSensitive},
        // VellmarkGroups.proto
        {"VellmarkPB.VellmarkGroupSettings.name", S::FreeText},
        {"VellmarkPB.VellmarkGroupAttributes.name", S::FreeText},
        {"VellmarkPB.VellmarkGroupMember.memberID", S::NotSensitive},
        {"VellmarkPB.VellmarkGroupMember.productID", S::NotSensitive},
        {"VellmarkPB.VellmarkGroupMember.subGroupID", S::NotSensitive},
        {"VellmarkPB.VellmarkGroupMember.role", S::NotSensitive},
        {"VellmarkPB.VellmarkGroupMember.createdOn", S::NotSensitive},
        {"VellmarkPB.VellmarkGroupMember.updatedOn", S::NotSensitive},
        {"VellmarkPB.VellmarkGroup.groupID", S::NotSensitive},
        {"VellmarkPB.VellmarkGroup.groupType", S::NotSensitive},
        {"VellmarkPB.VellmarkGroup.createdOn", S::NotSensitive},
        {"VellmarkPB.VellmarkGroup.updatedOn", S::NotSensitive},
        // VellmarkPersons.proto: an entry's value is the person's role, its key the person.
        {"VellmarkPB.Person.value", S::NotSensitive},
        {"VellmarkPB.Person.key", S::PersonId},
        // VellmarkProductSettings.proto
        {"VellmarkPB.ProductSettings.language", S::NotSensitive},
        {"VellmarkPB.ProductSettings.productName", S::FreeText},
        {"VellmarkPB.ProductSettings.name", S::FreeText},
        {"VellmarkPB.ProductSettings.timeZone", S::NotSensitive},
        {"VellmarkPB.ProductSettings.updatedOn", S::NotSensitive},
        {"VellmarkPB.ProductSettings.createdOn", S::NotSensitive},
        {"VellmarkPB.ProductSettings.productType", S::NotSensitive},
        {"VellmarkPB.ProductSettings.productID", S::NotSensitive},
        {"VellmarkPB.ProductSettings.ttsPromptLanguage", S::NotSensitive},
        {"VellmarkPB.ProductSettings.cableProviderID", S::NotSensitive},
        // LocalProducts.proto
        {"VellmarkPB.LocalProduct.productGuid", S::NotSensitive},
        {"VellmarkPB.LocalProduct.productType", S::NotSensitive},
        {"VellmarkPB.LocalProduct.productName", S::FreeText},
        {"VellmarkPB.LocalProduct.productVariantColor", S::NotSensitive},
        // Errors.proto (the service's messages)
        {"VellmarkPB.Error.message", S::FreeText},
        {"VellmarkPB.Error.productGuid", S::NotSensitive},
        // VellmarkAdmin.proto
        {"Vellmark.Admin.Put.resource", S::NotSensitive},
        {"Vellmark.Admin.Put.json", S::Token},
        {"Vellmark.Admin.Get.resource", S::NotSensitive},
        {"Vellmark.Admin.Seed.json", S::Token},
        {"Vellmark.Admin.Push.resource", S::NotSensitive},
        {"Vellmark.Admin.PushReport.resource", S::NotSensitive},
        {"Vellmark.Admin.Reply.error", S::FreeText},
        {"Vellmark.Admin.Reply.json", S::Token},
        {"Vellmark.Admin.Request.part", S::Token},
        {"Vellmark.Admin.Reply.part", S::Token},
        {"Vellmark.Admin.Client.connectedAt", S::NotSensitive},
        {"Vellmark.Admin.Acknowledgement.messageName", S::NotSensitive},
        {"Vellmark.Admin.Acknowledgement.receivedAt", S::NotSensitive},
        {"Vellmark.Admin.AcknowledgementCount.messageName", S::NotSensitive},
        {"Vellmark.Admin.TrafficEvent.time", S::NotSensitive},
        {"Vellmark.Admin.TrafficEvent.direction", S::NotSensitive},
        {"Vellmark.Admin.TrafficEvent.kind", S::NotSensitive},
        {"Vellmark.Admin.TrafficEvent.messageName", S::NotSensitive},
        {"Vellmark.Admin.TrafficEvent.payloadType", S::NotSensitive},
        // Masked by the service before it is set.
        {"Vellmark.Admin.TrafficEvent.payloadJson", S::FreeText},
        // The transport's envelope (IPCMessageEnvelopeBase.proto)
        {"Tarv.IPCMessageEnvelopeBase.payload_type_name", S::NotSensitive},
        {"Tarv.IPCMessageEnvelopeBase.payload", S::Token},
    };
    return table;
}

}  // namespace

std::optional<Sensitivity> SensitivityOf(google::protobuf::FieldDescriptor const* field) {
    auto const& table = Table();
    auto const found = table.find(field->full_name());
    if (found == table.end()) return std::nullopt;
    return found->second;
}

std::vector<std::pair<std::string, Sensitivity>> SensitivityTable() {
    return {Table().begin(), Table().end()};
}

}  // namespace Vellmark::Admin
