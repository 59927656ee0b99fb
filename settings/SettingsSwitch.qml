import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A labelled on/off switch in the window's colours, purple when on.
Switch {
    id: control
    Accessible.name: text
    // Screen readers press or toggle through the accessibility bus; Qt's switches ignore it unheard.
    Accessible.onPressAction: flip()
    Accessible.onToggleAction: flip()
    function flip() {
        if (!enabled)
            return;
        toggle();
        toggled();
        clicked();
    }
    font.pixelSize: 12
    spacing: 8
    padding: 0

    indicator: Rectangle {
        x: control.leftPadding
        anchors.verticalCenter: parent.verticalCenter
        implicitWidth: 32
        implicitHeight: 18
        radius: height / 2
        color: control.checked ? Theme.purple : Theme.withAlpha(Theme.primary, 0.18)
        Behavior on color {
            ColorAnimation { duration: 150 }
        }
        Rectangle {
            x: control.checked ? parent.width - width - 2 : 2
            anchors.verticalCenter: parent.verticalCenter
            width: 14
            height: 14
            radius: 7
            color: "white"
            Behavior on x {
                NumberAnimation {
                    duration: 150
                    easing.type: Easing.InOutQuad
                }
            }
        }
    }
    contentItem: Text {
        leftPadding: control.indicator.width + control.spacing
        text: control.text
        font: control.font
        color: Theme.primary
        verticalAlignment: Text.AlignVCenter
    }
}
