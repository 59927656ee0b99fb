import QtQuick
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Onboarding

// The closing page, shown while the window gets ready to go. Where Ctrl+Alt+H is still
// to be set up, the keyboard starts on the button that does it.
FocusScope {
    id: page
    required property OnboardingModel model
    property real appear: 0
    property real checkScale: 0.3
    property real checkOpacity: 0

    Component.onCompleted: (page.model.shortcutSetup.canAdd ? setupBox.addButton : leave).focus = true

    SequentialAnimation {
        running: true
        PauseAnimation { duration: 100 }
        ParallelAnimation {
            SpringMotion {
                target: page
                property: "checkScale"
                to: 1
                response: 0.5
                dampingFraction: 0.6
            }
            SpringMotion {
                target: page
                property: "checkOpacity"
                to: 1
                response: 0.5
                dampingFraction: 0.6
            }
        }
    }
    SequentialAnimation {
        running: true
        PauseAnimation { duration: 350 }
        NumberAnimation {
            target: page
            property: "appear"
            to: 1
            duration: 400
            easing.type: Easing.OutQuad
        }
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.leftMargin: 28
        anchors.rightMargin: 28
        spacing: 20

        Item { Layout.fillHeight: true }
        Rectangle {
            Layout.alignment: Qt.AlignHCenter
            implicitWidth: 80
            implicitHeight: 80
            radius: 40
            color: Theme.withAlpha(Theme.green, 0.12)
            scale: page.checkScale
            opacity: page.checkOpacity
            Icon {
                anchors.centerIn: parent
                name: "checkmark"
                size: 34
                color: Theme.green
            }
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("You're all set!")
            font.pixelSize: 26
            font.weight: Font.DemiBold
            color: Theme.primary
            opacity: page.appear
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            text: qsTr("Press Ctrl+Alt+H anywhere to Rewrite selected text.")
            font.pixelSize: 14
            color: Theme.secondary
            opacity: page.appear
        }
        Text {
            objectName: "apiKeyHint"
            Layout.alignment: Qt.AlignHCenter
            visible: !page.model.serviceUsable
            text: qsTr("One more step: pick a language model in Settings.")
            font.pixelSize: 13
            font.weight: Font.Medium
            color: Theme.purple
            opacity: page.appear
        }
        ShortcutSetupBox {
            id: setupBox
            Layout.alignment: Qt.AlignHCenter
            Layout.fillWidth: true
            Layout.maximumWidth: 440
            horizontalAlignment: Text.AlignHCenter
            setup: page.model.shortcutSetup
            opacity: page.appear
        }
        PrimaryButton {
            id: leave
            objectName: "leave"
            Layout.alignment: Qt.AlignHCenter
            visible: page.model.shortcutSetup.offered && !page.model.shortcutSetup.added
            text: qsTr("Done")
            iconSource: "qrc:/qt/qml/Tessary/Ui/icons/checkmark.svg"
            opacity: page.appear
            onActivated: page.model.leave()
        }
        Item { Layout.fillHeight: true }
    }
}
