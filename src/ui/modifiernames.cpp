// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/modifiernames.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

// A left key shows when its own side bit is set, or when the generic bit is set and neither side bit is.
bool leftHeld(ModifierFlags m, ModifierFlags leftBit, ModifierFlags rightBit, ModifierFlags genericBit)
{
    return (m & leftBit) || (m & (genericBit | rightBit)) == genericBit;
}

} // namespace

QString modifierNames(ModifierFlags m)
{
    namespace Flag = ModifierFlag;
    QStringList names;
    if (leftHeld(m, Flag::leftShift, Flag::rightShift, Flag::shift))
        names << u"lshift"_s;
    if (m & Flag::rightShift)
        names << u"rshift"_s;
    if (leftHeld(m, Flag::leftControl, Flag::rightControl, Flag::control))
        names << u"lctrl"_s;
    if (m & Flag::rightControl)
        names << u"rctrl"_s;
    if (leftHeld(m, Flag::leftOption, Flag::rightOption, Flag::option))
        names << u"lalt"_s;
    if (m & Flag::rightOption)
        names << u"ralt"_s;
    if (leftHeld(m, Flag::leftCommand, Flag::rightCommand, Flag::command))
        names << u"lcmd"_s;
    if (m & Flag::rightCommand)
        names << u"rcmd"_s;
    if (m & Flag::function)
        names << u"fn"_s;
    return names.join(u", "_s);
}
