#include "stowline/call/WebServiceCallRequest.h"

#include "stowline/call/WireNames.h"

namespace stowline {

namespace {

template <class T> std::optional<T> copied(const T* found)
{
    return found ? std::optional<T>(*found) : std::nullopt;
}

template <class T>
void store(Dictionary& dictionary, std::string_view key, const std::optional<T>& part)
{
    if (part)
        dictionary.insert_or_assign(std::string(key), Value(*part));
}

} // namespace

Dictionary WebServiceCallRequest::dictionary() const
{
    Dictionary dictionary;
    store(dictionary, requestKey::url, url);
    store(dictionary, requestKey::methodInfo, methodInfo);
    store(dictionary, requestKey::methodName, methodName);
    store(dictionary, requestKey::parameterSubstitutions, soapParamSubstitutions);
    store(dictionary, requestKey::headerSubstitutions, soapHeaderSubstitutions);
    store(dictionary, requestKey::proxy, proxy);
    return dictionary;
}

WebServiceCallRequest WebServiceCallRequest::fromDictionary(const Dictionary& dictionary)
{
    return {copied(findString(dictionary, requestKey::url)),
            copied(findDictionary(dictionary, requestKey::methodInfo)),
            copied(findString(dictionary, requestKey::methodName)),
            copied(findDictionary(dictionary, requestKey::parameterSubstitutions)),
            copied(findDictionary(dictionary, requestKey::headerSubstitutions)),
            copied(findString(dictionary, requestKey::proxy))};
}

} // namespace stowline
