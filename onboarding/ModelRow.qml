import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// One model in the onboarding list: its name, the server and address; tinted when chosen.
ItemDelegate {
    id: row
    required property string modelData
    required property int index
    property bool chosen: false

    objectName: "localModel" + index
    text: modelData
    Accessible.name: modelData
    Accessible.role: Accessible.RadioButton
    Accessible.checked: chosen
    Accessible.onPressAction: if (enabled) clicked()
    // The list has the row take the keys, and GNOME's theme presses a button that has them
    // with Return: the keys go to the list first, whose Return finishes the page.
    Keys.forwardTo: [ListView.view]
    padding: 8
    focusPolicy: Qt.NoFocus

    contentItem: Text {
        text: row.text
        font.pixelSize: 13
        color: Theme.primary
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
    background: Rectangle {
        radius: 8
        color: row.chosen ? Theme.withAlpha(Theme.purple, 0.14) : (row.hovered ? Theme.withAlpha(Theme.primary, 0.05) : "transparent")
        border.width: row.chosen ? 1.5 : 0.5
        border.color: row.chosen ? Theme.withAlpha(Theme.purple, 0.7) : Theme.separator
    }
}
