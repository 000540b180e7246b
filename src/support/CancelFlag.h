#pragma once

namespace kestrova::support {

// Set by the status window's Cancel button (or SIGINT headless) and polled by every
// wait. One instance for the whole program; there is one thread, so no atomics.
class CancelFlag
{
public:
    bool isSet() const { return m_set; }
    void set() { m_set = true; }
    void clear() { m_set = false; }

private:
    bool m_set = false;
};

} // namespace kestrova::support
