import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// One of several choices (a radio button) in the window's colours, purple when chosen.
RadioButton {
    id: control
    Accessible.name: text
    // Screen readers press or toggle through the accessibility bus; Qt's buttons ignore it unheard.
    Accessible.onPressAction: choose()
    Accessible.onToggleAction: choose()
    function choose() {
        if (!enabled)
            return;
        if (!checked) {
            toggle();
            toggled();
        }
        clicked();
    }
    font.pixelSize: 12
    spacing: 8
    padding: 2

    indicator: Rectangle {
        x: control.leftPadding
        anchors.verticalCenter: parent.verticalCenter
        implicitWidth: 16
        implicitHeight: 16
        radius: 8
        color: "transparent"
        border.width: control.visualFocus ? 2 : 1.5
        border.color: control.checked || control.visualFocus ? Theme.purple : Theme.secondary
        Rectangle {
            anchors.centerIn: parent
            width: 8
            height: 8
            radius: 4
            color: Theme.purple
            visible: control.checked
        }
    }
    contentItem: Text {
        leftPadding: control.indicator.width + control.spacing
        text: control.text
        font: control.font
        color: Theme.primary
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
}
