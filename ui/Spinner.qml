import QtQuick
import QtQuick.Shapes

// An indeterminate activity indicator: a three-quarter ring turning in the secondary colour.
Item {
    id: spinner

    property bool running: true
    property int size: 20
    property color color: Theme.secondary

    implicitWidth: size
    implicitHeight: size
    Accessible.role: Accessible.Animation
    Accessible.name: qsTr("Working")

    Shape {
        id: ring
        anchors.fill: parent
        layer.enabled: true
        layer.samples: 4

        ShapePath {
            strokeColor: spinner.color
            strokeWidth: Math.max(2, spinner.size / 9)
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap

            PathAngleArc {
                centerX: spinner.size / 2
                centerY: spinner.size / 2
                radiusX: spinner.size / 2 - 2
                radiusY: spinner.size / 2 - 2
                startAngle: -90
                sweepAngle: 270
            }
        }

        RotationAnimator on rotation {
            from: 0
            to: 360
            duration: 900
            loops: Animation.Infinite
            running: spinner.running && spinner.visible
        }
    }
}
