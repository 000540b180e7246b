#include "support/CResize.h"

#include "support/Format.h"
#include "support/VbError.h"

#include <limits>

namespace kestrova::support {

namespace {

// Storing into a 16-bit field: rounded half to even, and the overflow error beyond range.
qint16 toInt16(double value)
{
    const double rounded = static_cast<double>(roundHalfEven(value));
    if (rounded < std::numeric_limits<qint16>::min() || rounded > std::numeric_limits<qint16>::max()) {
        throw VbError(VbError::Overflow);
    }
    return static_cast<qint16>(rounded);
}

} // namespace

void CResize::GetPositions(const ResizeFrame& frame, const ResizeControl& control)
{
    m_rightEdge = toInt16(control.Left() + control.Width());
    m_bottomEdge = toInt16(control.Top() + control.Height());
    m_rightMargin = toInt16(frame.Width() - m_rightEdge);
    m_bottomMargin = toInt16(frame.Height() - m_bottomEdge);
}

QString CResize::ResizeCtrl(ResizeFrame& frame, ResizeControl& control)
{
    try {
        if (frame.Height() < m_minFrmHeight) {
            frame.setHeight(m_minFrmHeight);
        }
        if (frame.Width() < m_minFrmWidth) {
            frame.setWidth(m_minFrmWidth);
        }
        if (m_fixedHeight) {
            m_newHeight = toInt16(control.Height());
        } else {
            m_newHeight = toInt16(frame.Height() - m_bottomMargin - control.Top());
            if (m_newHeight < 0) {
                m_newHeight = 0;
            }
        }
        if (m_fixedWidth) {
            m_newWidth = toInt16(control.Width());
        } else {
            m_newWidth = toInt16(frame.Width() - m_rightMargin - control.Left());
            if (m_newWidth < 0) {
                m_newWidth = 0;
            }
        }
        if (m_fixedToBottom) {
            const double top = frame.Height() - m_bottomMargin - control.Height();
            control.setTop(top < 0 ? 0 : top);
        }
        control.setHeight(m_newHeight);
        control.setWidth(m_newWidth);
    } catch (const VbError& e) {
        return QStringLiteral("CResize::ResizeCtrl: ") + e.description();
    }
    return {};
}

} // namespace kestrova::support
