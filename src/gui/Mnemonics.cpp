#include "gui/Mnemonics.h"

#include <QAbstractButton>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QLabel>
#include <QSet>
#include <QTabBar>

namespace kestrova::gui {

namespace {

QString wordFor(QDialogButtonBox::StandardButton button)
{
    switch (button) {
    case QDialogButtonBox::Ok:
        return QStringLiteral("OK");
    case QDialogButtonBox::Save:
        return QStringLiteral("Save");
    case QDialogButtonBox::Cancel:
        return QStringLiteral("Cancel");
    case QDialogButtonBox::Close:
        return QStringLiteral("Close");
    case QDialogButtonBox::Yes:
        return QStringLiteral("Yes");
    case QDialogButtonBox::No:
        return QStringLiteral("No");
    case QDialogButtonBox::Retry:
        return QStringLiteral("Retry");
    case QDialogButtonBox::Apply:
        return QStringLiteral("Apply");
    case QDialogButtonBox::Reset:
        return QStringLiteral("Reset");
    case QDialogButtonBox::Help:
        return QStringLiteral("Help");
    default:
        return {};
    }
}

// The letters the window's other controls answer to, on every page of it.
QSet<QChar> lettersInUse(const QWidget* window, const QDialogButtonBox* box)
{
    QSet<QChar> used;
    auto add = [&used](const QString& text) {
        if (const QChar c = mnemonicOf(text); !c.isNull()) {
            used.insert(c);
        }
    };
    for (const QWidget* w : window->findChildren<QWidget*>()) {
        if (box->isAncestorOf(w)) {
            continue;
        }
        if (const auto* b = qobject_cast<const QAbstractButton*>(w)) {
            add(b->text());
        } else if (const auto* label = qobject_cast<const QLabel*>(w); label && label->buddy()) {
            add(label->text());
        } else if (const auto* group = qobject_cast<const QGroupBox*>(w); group && group->isCheckable()) {
            add(group->title());
        } else if (const auto* tabs = qobject_cast<const QTabBar*>(w)) {
            for (int i = 0; i < tabs->count(); ++i) {
                add(tabs->tabText(i));
            }
        }
    }
    return used;
}

} // namespace

void giveMnemonics(QDialogButtonBox* box)
{
    if (!box) {
        return;
    }
    QSet<QChar> used = lettersInUse(box->window(), box);
    QList<QAbstractButton*> unlettered;
    for (QAbstractButton* b : box->buttons()) {
        if (const QChar c = mnemonicOf(b->text()); !c.isNull()) {
            used.insert(c);
        } else if (!wordFor(box->standardButton(b)).isEmpty()) {
            unlettered << b;
        }
    }
    for (QAbstractButton* b : std::as_const(unlettered)) {
        const QString word = wordFor(box->standardButton(b));
        qsizetype at = 0; // every letter taken: the first one, and the clash shows in the tests
        for (qsizetype i = 0; i < word.size(); ++i) {
            if (word[i].isLetter() && !used.contains(word[i].toLower())) {
                at = i;
                break;
            }
        }
        used.insert(word[at].toLower());
        b->setText(word.left(at) + u'&' + word.mid(at));
    }
}

QChar mnemonicOf(const QString& text)
{
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text[i] == u'&') {
            if (text[i + 1] != u'&') {
                return text[i + 1].toLower();
            }
            ++i;
        }
    }
    return {};
}

} // namespace kestrova::gui
