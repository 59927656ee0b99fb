import QtQuick
import Tessary.Ui

// One line of small print under the result; hidden while it has nothing to say.
Text {
    visible: text.length > 0
    font.family: Theme.fontFamily
    font.pixelSize: 11
    color: Theme.secondary
    wrapMode: Text.Wrap
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
