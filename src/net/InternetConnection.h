#pragma once

namespace kestrova::net {

// What the update run, SMTP paging and the mail check need of the Internet link: bring
// it up before the work (true when usable) and close what the program opened.
class InternetConnection
{
public:
    virtual ~InternetConnection() = default;
    virtual bool connect() = 0;
    virtual void hangUp() = 0;
};

} // namespace kestrova::net
