#include "stowline/platform/http/PreparedTrust.h"

#include "stowline/platform/files/Files.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <climits>
#include <memory>
#include <string>

namespace stowline::platform {

namespace {

struct StoreDeleter {
    void operator()(X509_STORE* store) const { X509_STORE_free(store); }
};
struct SourceDeleter {
    void operator()(BIO* source) const { BIO_free(source); }
};
struct CertificateDeleter {
    void operator()(X509* certificate) const { X509_free(certificate); }
};

class Preparation {
public:
    static Preparation& instance()
    {
        static auto& preparation = *new Preparation; // as long as the process
        return preparation;
    }

    /// @return whether there is more to read
    bool readOne()
    {
        if (state_ == State::ended)
            return false;
        const bool goesOn = state_ == State::untouched ? open() : readCertificate();
        if (!goesOn) {
            state_ = State::ended;
            source_.reset();
            text_ = {};
            ERR_clear_error();
        }
        return goesOn;
    }

    [[nodiscard]] X509_STORE* storeFor(const TrustRoots& roots) const
    {
        const bool isSame = roots.file == roots_.file && roots.folder == roots_.folder;
        return isWhole_ && isSame ? store_.get() : nullptr;
    }

private:
    enum class State { untouched, reading, ended };

    bool open()
    {
        roots_ = trustRoots();
        auto text = roots_.file.empty() ? std::nullopt : readFile(roots_.file);
        constexpr std::string_view begin = "-----BEGIN ";
        constexpr std::string_view certificate = "-----BEGIN CERTIFICATE-----";
        if (!text || text->size() > INT_MAX)
            return false;
        for (auto at = text->find(begin); at != std::string::npos; at = text->find(begin, at + 1)) {
            if (text->compare(at, certificate.size(), certificate) != 0)
                return false; // lists of revoked ones, and what else the library knows
            ++expected_;
        }
        text_ = std::move(*text);
        source_.reset(BIO_new_mem_buf(text_.data(), static_cast<int>(text_.size())));
        store_.reset(X509_STORE_new());
        state_ = State::reading;
        return expected_ > 0 && source_ && store_ && addFolder();
    }

    [[nodiscard]] bool addFolder() const
    {
        return roots_.folder.empty() ||
               X509_STORE_load_path(store_.get(), roots_.folder.c_str()) == 1;
    }

    bool readCertificate()
    {
        const std::unique_ptr<X509, CertificateDeleter> certificate(
            PEM_read_bio_X509(source_.get(), nullptr, nullptr, nullptr));
        if (certificate) {
            ++read_;
            return X509_STORE_add_cert(store_.get(), certificate.get()) == 1;
        }
        const bool isEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
        isWhole_ = isEnd && read_ == expected_;
        if (isWhole_) // what the first look-up of each child would do
            sk_X509_OBJECT_sort(X509_STORE_get0_objects(store_.get()));
        return false;
    }

    State state_ = State::untouched;
    bool isWhole_ = false;
    std::size_t expected_ = 0;
    std::size_t read_ = 0;
    TrustRoots roots_;
    std::string text_;
    std::unique_ptr<BIO, SourceDeleter> source_;
    std::unique_ptr<X509_STORE, StoreDeleter> store_;
};

CURLcode giveStore(CURL*, void* context, void* store)
{
    SSL_CTX_set1_cert_store(static_cast<SSL_CTX*>(context), static_cast<X509_STORE*>(store));
    return CURLE_OK;
}

} // namespace

bool prepareTrust()
{
    return Preparation::instance().readOne();
}

bool usePreparedTrust(CURL* handle, const TrustRoots& roots)
{
    X509_STORE* store = Preparation::instance().storeFor(roots);
    if (!store)
        return false;
    curl_easy_setopt(handle, CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(handle, CURLOPT_SSL_CTX_DATA, store);
    curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, &giveStore);
    return true;
}

} // namespace stowline::platform
