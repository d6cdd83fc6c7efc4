#include "devserver/AccountService.h"

#include "devserver/Answers.h"
#include "devserver/Parameters.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"

namespace stowline::devserver {

namespace {

constexpr std::size_t kKeySize = 32;

struct SignIn {
    std::optional<std::string> accountStatus; ///< absent: nobody is signed in
    std::string backupServerName;
};

const std::vector<FieldOf<SignIn>>& signInFields()
{
    const auto nothing = [](const SignIn& /*signIn*/) { return std::optional<Value>(); };
    static const std::vector<FieldOf<SignIn>> fields{
        {"AuthenticateResult",
         [](const SignIn& signIn) { return truthText(signIn.accountStatus.has_value()); }},
        {"accountStatus",
         [](const SignIn& signIn) { return signIn.accountStatus.value_or("Unknown"); }},
        {"backupServerName",
         [](const SignIn& signIn) {
             return signIn.accountStatus ? std::optional<Value>(signIn.backupServerName)
                                         : std::nullopt;
         }},
        {"message", nothing, true},
        {"greeting", [](const SignIn& /*signIn*/) { return ""; }}};
    return fields;
}

Dictionary authenticate(const AccountServiceContext& context, const Dictionary& parameters)
{
    return told(signInFields(), {context.accounts.signIn(text(parameters, "userName"),
                                                         text(parameters, "password")),
                                 context.backupServerName});
}

Value createAccount(const AccountServiceContext& context, const Dictionary& parameters)
{
    return codeOf(context.accounts.open({.userName = text(parameters, "userName"),
                                         .password = text(parameters, "password"),
                                         .firstName = text(parameters, "firstName"),
                                         .email = text(parameters, "emailID")}));
}

Value changePassword(const AccountServiceContext& context, const Dictionary& parameters)
{
    return codeOf(context.accounts.changePassword(text(parameters, "userName"),
                                                  text(parameters, "password"),
                                                  text(parameters, "newPassword")));
}

const std::vector<FieldOf<AccountOutcome>>& trialFields()
{
    // Some refusals come with a sentence, some with the code alone, as real services do.
    static const std::vector<FieldOf<AccountOutcome>> fields{
        {"Code", [](AccountOutcome outcome) { return codeOf(outcome); }},
        {"Message", [](AccountOutcome outcome) {
             return outcome == AccountOutcome::invalidEmailAddress
                        ? std::optional<Value>(
                              "Please give an e-mail address like name@example.com.")
                        : std::nullopt;
         }}};
    return fields;
}

Value createTrialAccount(const AccountServiceContext& context, const Dictionary& parameters)
{
    return told(trialFields(),
                context.accounts.open({.userName = text(parameters, "userName"),
                                       .password = text(parameters, "password"),
                                       .firstName = text(parameters, "firstName"),
                                       .email = text(parameters, "email"),
                                       .customerType = text(parameters, "customerTypeCode"),
                                       .isSealGuard = text(parameters, "isSealGuard") == "1",
                                       .secretQuestion = text(parameters, "secretQuestion"),
                                       .secretAnswer = text(parameters, "answer"),
                                       .referralCode = text(parameters, "referalCode")}));
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

Value encryptString(const AccountServiceContext& context, const Dictionary& parameters)
{
    const Data box = platform::sealed(text(parameters, "sourceString"), context.encryptionKey);
    return platform::hexadecimalText(box);
}

Value decryptString(const AccountServiceContext& context, const Dictionary& parameters)
{
    const auto box = fromHexadecimal(text(parameters, "sourceString"));
    const auto secret = box ? platform::unsealed(*box, context.encryptionKey) : std::nullopt;
    if (!secret)
        throw ServiceFault("Client", "The text was not encrypted by this service");
    return *secret;
}

constexpr std::uint64_t kBytesInKb = 1024;
constexpr std::uint64_t kQuotaInKb = std::uint64_t{100} << 20; // 100 GiB

std::string inKb(std::uint64_t bytes)
{
    return std::to_string((bytes + kBytesInKb - 1) / kBytesInKb);
}

std::string usedKb(const AccountServiceContext& context, const std::string& user)
{
    return inKb(context.storage.usedBytes(user));
}

Value getUsedSpace(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    return usedKb(context, text(parameters, "userName"));
}

struct AccountInfo {
    AccountDetails account;
    std::string usedKb;
    std::string graceKb;
    std::string systemName;
    std::string installationId;
};

const std::vector<FieldOf<AccountInfo>>& infoFields()
{
    using Info = const AccountInfo&;
    static const std::vector<FieldOf<AccountInfo>> fields{
        {"AccountStatus", [](Info info) { return info.account.status; }},
        {"FirstName", [](Info info) { return info.account.firstName; }},
        {"Email", [](Info info) { return info.account.email; }},
        {"Opened", [](Info info) { return info.account.opened; }},
        {"UsedSpaceInKb", &AccountInfo::usedKb},
        {"DeletedSpaceInKb", &AccountInfo::graceKb},
        {"QuotaInKb", [](Info /*info*/) { return std::to_string(kQuotaInKb); }},
        {"SystemName", &AccountInfo::systemName},
        {"InstallationID", &AccountInfo::installationId}};
    return fields;
}

Value getAccountInfo(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string user = text(parameters, "userName");
    return told(infoFields(), {*context.accounts.details(user), usedKb(context, user),
                               inKb(context.storage.graceBytes(user)),
                               text(parameters, "systemName"), text(parameters, "installationId")});
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
             described(signInFields()),
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
             "Changes an account's password, which ends its tickets.",
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
             {{.name = "CreateTrialAccountResult", .parts = described(trialFields())}},
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
             {{.name = "GetAccountInfoResult", .parts = described(infoFields())}},
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
