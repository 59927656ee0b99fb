import QtQuick

// The application's logo fitted into a small square; the purple sparkles stand in
// when the image cannot be loaded.
Item {
    id: logo

    property int size: 14

    implicitWidth: size
    implicitHeight: size
    Accessible.role: Accessible.Graphic
    Accessible.name: qsTr("Tessary")

    Image {
        id: image
        anchors.fill: parent
        source: Qt.resolvedUrl("icons/logo.svg")
        sourceSize: Qt.size(logo.size * 2, logo.size * 2)
        fillMode: Image.PreserveAspectFit
        smooth: true
    }
    Icon {
        anchors.centerIn: parent
        visible: image.status === Image.Error
        name: "sparkles"
        size: logo.size
        color: Theme.purple
    }
}
