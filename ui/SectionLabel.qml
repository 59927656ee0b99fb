import QtQuick

// A section caption: upper case, small, semibold, secondary colour, slightly tracked.
Text {
    font.family: Theme.fontFamily
    font.pixelSize: 10
    font.weight: Font.DemiBold
    font.letterSpacing: 0.8
    font.capitalization: Font.AllUppercase
    color: Theme.secondary
    textFormat: Text.PlainText
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
