import QtQuick
import QtQuick.Layouts
import Tessary.Ui

// The first page: what Tessary is, in one look.
Item {
    id: page
    property real appear: 0
    property bool trayShown: true
    signal next

    SequentialAnimation {
        running: true
        PauseAnimation { duration: 50 }
        SpringMotion {
            target: page
            property: "appear"
            to: 1
            response: 0.5
            dampingFraction: 0.75
        }
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.leftMargin: 28
        anchors.rightMargin: 28
        anchors.bottomMargin: 28
        spacing: 0

        Rectangle {
            implicitWidth: 64
            implicitHeight: 64
            radius: 18
            color: Theme.withAlpha(Theme.purple, 0.12)
            scale: 0.6 + 0.4 * page.appear
            opacity: page.appear
            Logo {
                anchors.centerIn: parent
                size: 30
            }
        }
        Item { implicitHeight: 24 }
        Text {
            text: qsTr("Welcome to Tessary")
            font.pixelSize: 26
            font.weight: Font.DemiBold
            color: Theme.primary
            opacity: page.appear
            transform: Translate { y: 8 * (1 - page.appear) }
        }
        Item { implicitHeight: 8 }
        Text {
            text: qsTr("Your personal writing style, supercharged.") + "\n"
                  + qsTr("Highlight any text, press Ctrl+Alt+H — done.")
            font.pixelSize: 14
            lineHeight: 1.25
            color: Theme.secondary
            opacity: page.appear
            transform: Translate { y: 8 * (1 - page.appear) }
        }
        Item { implicitHeight: 32 }
        Row {
            spacing: 10
            opacity: page.appear
            FeaturePill {
                iconSource: Qt.resolvedUrl("icons/wand.svg")
                label: qsTr("AI rewrite")
            }
            FeaturePill {
                iconSource: Qt.resolvedUrl("icons/lock.svg")
                label: qsTr("Private")
            }
            FeaturePill {
                iconSource: Qt.resolvedUrl("icons/bolt.svg")
                label: qsTr("Global hotkey")
            }
        }
        Item { Layout.fillHeight: true }
        NoTrayNote { visible: !page.trayShown; opacity: page.appear }
        Item { implicitHeight: page.trayShown ? 0 : 16 }
        PrimaryButton {
            objectName: "getStarted"
            focus: true
            text: qsTr("Get started")
            iconSource: Qt.resolvedUrl("icons/arrow-right.svg")
            opacity: page.appear
            onActivated: page.next()
        }
    }
}
