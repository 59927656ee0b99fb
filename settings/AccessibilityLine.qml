import QtQuick
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Settings

// One line while the desktop's accessibility switch is off, with the button that turns
// it on where the desktop has one.
RowLayout {
    id: line
    required property AccessibilitySwitch accessibility

    visible: accessibility.known && !accessibility.on
    spacing: 8

    Text {
        objectName: "accessibilityLine"
        Layout.fillWidth: true
        text: qsTr("Turn on the desktop's accessibility switch and Replace writes in place instead of pasting.")
        wrapMode: Text.Wrap
        font.pixelSize: 12
        color: Theme.secondary
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
    SettingsButton {
        objectName: "turnOnAccessibility"
        visible: line.accessibility.switchable
        enabled: !line.accessibility.turningOn
        text: qsTr("Turn On")
        onClicked: line.accessibility.turnOn()
    }
}
