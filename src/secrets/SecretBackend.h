#pragma once

#include <QString>

namespace kestrova::secrets {

// What a backend found under a secret's name.
struct SecretRead
{
    QString value;
    bool found = false;
    QString error; // why the backend could not be asked (no answer, refused); empty when it answered
};

// One place secrets can live. Names are short ASCII words ("SourceKey_finnhub"); values are
// text. Every call is synchronous for the caller, however the backend works underneath.
class SecretBackend
{
public:
    virtual ~SecretBackend() = default;
    // Where the secrets are, in words for messages and diagnostics.
    virtual QString where() const = 0;
    virtual SecretRead read(const QString& name) = 0;
    // These return why they failed, or an empty text.
    virtual QString write(const QString& name, const QString& value) = 0;
    // Removing a secret that is not there succeeds.
    virtual QString remove(const QString& name) = 0;
};

} // namespace kestrova::secrets
