import QtQuick

// An indeterminate activity indicator: eight spokes fading round a circle.
Item {
    id: spinner

    property bool running: true
    property int size: 20
    property color color: Theme.secondary
    property int step: 0

    implicitWidth: size
    implicitHeight: size
    Accessible.role: Accessible.Animation
    Accessible.name: qsTr("Working")

    Repeater {
        model: 8

        Rectangle {
            required property int index
            x: (spinner.width - width) / 2
            y: 0
            width: Math.max(2, Math.round(spinner.size / 9))
            height: Math.round(spinner.size * 0.3)
            radius: width / 2
            color: spinner.color
            opacity: 0.15 + 0.85 * (((index - spinner.step) % 8 + 8) % 8 === 0 ? 1 : 1 - (((spinner.step - index) % 8 + 8) % 8) / 8)
            transform: Rotation {
                origin.x: width / 2
                origin.y: spinner.height / 2
                angle: index * 45
            }
        }
    }

    // Stands still while its window is hidden: a closed popup, or one built ahead, must
    // not wake the program ten times a second.
    Timer {
        interval: 100
        repeat: true
        running: spinner.running && spinner.visible && spinner.Window.visibility !== Window.Hidden
        onTriggered: spinner.step = (spinner.step + 1) % 8
    }
}
