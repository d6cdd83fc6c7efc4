#include "devserver/AccountService.h"

#include "devserver/Parameters.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"

namespace stowline::devserver {

namespace {

constexpr std::size_t kKeySize = 32;

Dictionary authenticate(const AccountServiceContext& context, const Dictionary& parameters)
{
    const auto status =
        context.accounts.signIn(text(parameters, "userName"), text(parameters, "password"));
    if (!status)
        return {{"AuthenticateResult", "false"}, {"accountStatus", "Unknown"}, {"greeting", ""}};
    return {{"AuthenticateResult", "true"},
            {"accountStatus", *status},
            {"backupServerName", context.backupServerName},
            {"greeting", ""}};
}

Dictionary createAccount(const AccountServiceContext& context, const Dictionary& parameters)
{
    return {
        {"CreateAccountResult", context.accounts.open({.userName = text(parameters, "userName"),
                                                       .password = text(parameters, "password"),
                                                       .firstName = text(parameters, "firstName"),
                                                       .email = text(parameters, "emailID")})}};
}

Dictionary changePassword(const AccountServiceContext& context, const Dictionary& parameters)
{
    return {{"ChangePasswordResult", context.accounts.changePassword(
                                         text(parameters, "userName"), text(parameters, "password"),
                                         text(parameters, "newPassword"))}};
}

/// Some refusals come with a sentence, some with the code alone, as real services do.
Dictionary createTrialAccount(const AccountServiceContext& context, const Dictionary& parameters)
{
    const std::string code =
        context.accounts.open({.userName = text(parameters, "userName"),
                               .password = text(parameters, "password"),
                               .firstName = text(parameters, "firstName"),
                               .email = text(parameters, "email"),
                               .customerType = text(parameters, "customerTypeCode"),
                               .isSealGuard = text(parameters, "isSealGuard") == "1",
                               .secretQuestion = text(parameters, "secretQuestion"),
                               .secretAnswer = text(parameters, "answer"),
                               .referralCode = text(parameters, "referalCode")});
    Dictionary result{{"Code", code}};
    if (code == "InvalidEmailAddress")
        result.emplace("Message", "Please give an e-mail address like name@example.com.");
    return {{"CreateTrialAccountResult", std::move(result)}};
}

std::optional<Data> fromHexadecimal(std::string_view digits)
{
    Data bytes;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
        const auto value = [](char c) {
            return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        };
        const int high = value(digits[at]);
        const int low = value(digits[at + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    }
    return bytes;
}

Dictionary encryptString(const AccountServiceContext& context, const Dictionary& parameters)
{
    const Data box = platform::sealed(text(parameters, "sourceString"), context.encryptionKey);
    return {{"EncryptStringResult", platform::hexadecimalText(box)}};
}

Dictionary decryptString(const AccountServiceContext& context, const Dictionary& parameters)
{
    const auto box = fromHexadecimal(text(parameters, "sourceString"));
    const auto secret = box ? platform::unsealed(*box, context.encryptionKey) : std::nullopt;
    if (!secret)
        throw ServiceFault("Client", "The text was not encrypted by this service");
    return {{"DecryptStringResult", *secret}};
}

constexpr std::uint64_t kBytesInKb = 1024;
constexpr std::uint64_t kQuotaInKb = std::uint64_t{100} << 20; // 100 GiB

std::string usedKb(const AccountServiceContext& context, const std::string& user)
{
    return std::to_string((context.storage.usedBytes(user) + kBytesInKb - 1) / kBytesInKb);
}

Dictionary getUsedSpace(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    return {{"GetAccountUsedSpaceResult", usedKb(context, text(parameters, "userName"))}};
}

Dictionary getAccountInfo(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string user = text(parameters, "userName");
    const auto account = context.accounts.details(user);
    return {{"GetAccountInfoResult",
             Dictionary{{"AccountStatus", account->status},
                        {"FirstName", account->firstName},
                        {"Email", account->email},
                        {"Opened", account->opened},
                        {"UsedSpaceInKb", usedKb(context, user)},
                        {"QuotaInKb", std::to_string(kQuotaInKb)},
                        {"SystemName", text(parameters, "systemName")},
                        {"InstallationID", text(parameters, "installationId")}}}};
}

} // namespace

Service accountService(const AccountServiceContext& context)
{
    return {
        "AccountService",
        "/AccountService.asmx",
        "http://stowline.example/account",
        {
            {"Authenticate",
             "Signs a user in.",
             {{.name = "userName"}, {.name = "password"}, {.name = "partner", .nillable = true}},
             {{.name = "AuthenticateResult"},
              {.name = "accountStatus"},
              {.name = "backupServerName"},
              {.name = "message", .nillable = true},
              {.name = "greeting"}},
             with(context, authenticate)},
            {"CreateAccount",
             "Opens an account.",
             {{.name = "firstName"},
              {.name = "userName"},
              {.name = "password"},
              {.name = "emailID"}},
             {{.name = "CreateAccountResult"}},
             with(context, createAccount)},
            {"ChangePassword",
             "Gives an account another password; its tickets are good for nothing then.",
             {{.name = "userName"}, {.name = "password"}, {.name = "newPassword"}},
             {{.name = "ChangePasswordResult"}},
             with(context, changePassword)},
            {"CreateTrialAccount",
             "Opens an account of a customer type.",
             {{.name = "firstName"},
              {.name = "userName"},
              {.name = "password"},
              {.name = "email"},
              {.name = "customerTypeCode"},
              {.name = "isSealGuard"},
              {.name = "secretQuestion"},
              {.name = "answer"},
              {.name = "referalCode"}},
             {{.name = "CreateTrialAccountResult",
               .parts = {{.name = "Code"}, {.name = "Message"}}}},
             with(context, createTrialAccount)},
            {"EncryptString",
             "Encrypts a text with a key that only the service holds.",
             {{.name = "sourceString"}},
             {{.name = "EncryptStringResult"}},
             with(context, encryptString)},
            {"DecryptString",
             "Decrypts what EncryptString made.",
             {{.name = "sourceString"}},
             {{.name = "DecryptStringResult"}},
             with(context, decryptString)},
            {"GetAccountUsedSpace",
             "Space that the account uses, in kilobytes.",
             {{.name = "userName"}, {.name = "password"}},
             {{.name = "GetAccountUsedSpaceResult"}},
             with(context, getUsedSpace)},
            {"GetAccountInfo",
             "Details of the account.",
             {{.name = "userName"},
              {.name = "password"},
              {.name = "installationId"},
              {.name = "osBits"},
              {.name = "systemName"},
              {.name = "productName"},
              {.name = "productVersion"},
              {.name = "osVersion"}},
             {{.name = "GetAccountInfoResult",
               .parts = {{.name = "AccountStatus"},
                         {.name = "FirstName"},
                         {.name = "Email"},
                         {.name = "Opened"},
                         {.name = "UsedSpaceInKb"},
                         {.name = "QuotaInKb"},
                         {.name = "SystemName"},
                         {.name = "InstallationID"}}}},
             with(context, getAccountInfo)},
        },
    };
}

Data encryptionKeyIn(const std::filesystem::path& file)
{
    if (const auto kept = platform::readFile(file); kept && kept->size() == kKeySize)
        return platform::dataFromText(*kept);
    Data key = platform::randomBytes(kKeySize);
    if (!platform::writeFileAtomically(file, platform::textFromData(key)))
        throw std::runtime_error("The encryption key cannot be kept in " + file.string());
    return key;
}

} // namespace stowline::devserver
