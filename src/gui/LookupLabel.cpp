#include "gui/LookupLabel.h"

#include "quotes/SymbolLookup.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QStyle>

namespace kestrova::gui {

LookupLabel::LookupLabel(QWidget* parent) : QWidget(parent)
{
    m_icon = new QLabel(this);
    const int size = style()->pixelMetric(QStyle::PM_SmallIconSize);
    m_icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(size, size));
    m_icon->setToolTip(tr("A warning, not a refusal: a quote server of servers.dat may still know it"));
    m_icon->hide();
    m_text = new QLabel(this);
    m_text->setTextFormat(Qt::PlainText);
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_text->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_icon, 0, Qt::AlignTop);
    row->addWidget(m_text, 1);
}

void LookupLabel::showAsking(const QString& symbol)
{
    m_icon->hide();
    m_text->setEnabled(false);
    m_text->setText(tr("%1: asking the quote sources...").arg(symbol));
}

void LookupLabel::showResult(const quotes::LookupResult& result)
{
    m_icon->setVisible(!result.known);
    m_text->setEnabled(true);
    m_text->setText(quotes::lookupText(result));
}

void LookupLabel::clear()
{
    m_icon->hide();
    m_text->clear();
}

QString LookupLabel::text() const
{
    return m_text->text();
}

bool LookupLabel::warning() const
{
    return !m_icon->isHidden();
}

} // namespace kestrova::gui
