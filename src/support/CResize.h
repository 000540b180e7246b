#pragma once

#include <QString>
#include <QtGlobal>

namespace kestrova::support {

// The window side of a resize: its size in its own units. An implementation raises
// VbError when it cannot give or take a size (a minimised window cannot be sized).
class ResizeFrame
{
public:
    virtual ~ResizeFrame() = default;
    virtual double Width() const = 0;
    virtual double Height() const = 0;
    virtual void setWidth(double value) = 0;
    virtual void setHeight(double value) = 0;
};

// The control that follows the window, addressed through its four position fields.
class ResizeControl
{
public:
    virtual ~ResizeControl() = default;
    virtual double Left() const = 0;
    virtual double Top() const = 0;
    virtual double Width() const = 0;
    virtual double Height() const = 0;
    virtual void setTop(double value) = 0;
    virtual void setWidth(double value) = 0;
    virtual void setHeight(double value) = 0;
};

// Keeps one control's right and bottom margins to its window constant, so a list or a
// text grows and shrinks with the window, and keeps the window from shrinking below a
// minimum. Every stored size is a 16-bit integer: a value that does not fit raises the
// overflow error, which ResizeCtrl reports like any other failure.
class CResize
{
public:
    bool FixedWidth() const { return m_fixedWidth; }
    void setFixedWidth(bool value) { m_fixedWidth = value; }
    bool FixedHeight() const { return m_fixedHeight; }
    void setFixedHeight(bool value) { m_fixedHeight = value; }
    // Kept and readable only: a control is stretched, never moved sideways.
    bool FixedToRight() const { return m_fixedToRight; }
    void setFixedToRight(bool value) { m_fixedToRight = value; }
    bool FixedToBottom() const { return m_fixedToBottom; }
    void setFixedToBottom(bool value) { m_fixedToBottom = value; }
    qint16 MinFrmHeight() const { return m_minFrmHeight; }
    void setMinFrmHeight(qint16 value) { m_minFrmHeight = value; }
    qint16 MinFrmWidth() const { return m_minFrmWidth; }
    void setMinFrmWidth(qint16 value) { m_minFrmWidth = value; }

    // Records the control's edges and its margins to the window, once, after loading.
    // Raises VbError (overflow) for a size beyond 16 bits.
    void GetPositions(const ResizeFrame& frame, const ResizeControl& control);
    // Applies the minimum window size and stretches (or slides) the control. Returns the
    // error text "CResize::ResizeCtrl: ..." when a step failed (the steps before it stay
    // done), else an empty text.
    QString ResizeCtrl(ResizeFrame& frame, ResizeControl& control);

    qint16 rightMargin() const { return m_rightMargin; }
    qint16 bottomMargin() const { return m_bottomMargin; }
    qint16 newWidth() const { return m_newWidth; }
    qint16 newHeight() const { return m_newHeight; }

private:
    qint16 m_newHeight = 0;
    qint16 m_newWidth = 0;
    qint16 m_rightEdge = 0;
    qint16 m_bottomEdge = 0;
    qint16 m_minFrmWidth = 0;
    qint16 m_minFrmHeight = 0;
    qint16 m_rightMargin = 0;
    qint16 m_bottomMargin = 0;
    bool m_fixedToBottom = false;
    bool m_fixedToRight = false;
    bool m_fixedHeight = false;
    bool m_fixedWidth = false;
};

} // namespace kestrova::support
