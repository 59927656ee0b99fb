import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Onboarding

// The second page: one piece of the user's own writing.
FocusScope {
    id: page
    required property OnboardingModel model
    property real appear: 0

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

        StepBadge {
            number: "01"
            label: qsTr("Teach your style")
            opacity: page.appear
        }
        Item { implicitHeight: 20 }
        Text {
            text: qsTr("Add a writing sample")
            font.pixelSize: 22
            font.weight: Font.DemiBold
            color: Theme.primary
            opacity: page.appear
            transform: Translate { y: 8 * (1 - page.appear) }
        }
        Item { implicitHeight: 8 }
        Text {
            text: qsTr("Paste something you've written — an email, essay, or message.") + "\n"
                  + qsTr("Tessary will mimic your natural voice.")
            font.pixelSize: 14
            lineHeight: 1.25
            color: Theme.secondary
            opacity: page.appear
        }
        Item { implicitHeight: 20 }
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: Math.max(110, Math.min(130, editor.implicitHeight))
            radius: 10
            color: Theme.withAlpha(Theme.primary, Theme.dark ? 0.05 : 0.03)
            border.width: editor.activeFocus ? 1.5 : 0.5
            border.color: editor.activeFocus ? Theme.withAlpha(Theme.purple, 0.7) : Theme.separator
            opacity: page.appear
            transform: Translate { y: 10 * (1 - page.appear) }

            ScrollView {
                anchors.fill: parent
                anchors.margins: 1
                focus: true
                TextArea {
                    id: editor
                    objectName: "sampleEditor"
                    focus: true // the user types the sample straight away
                    padding: 10
                    text: page.model.sampleText
                    wrapMode: TextEdit.Wrap
                    font.pixelSize: 13
                    color: Theme.primary
                    selectByMouse: true
                    background: null
                    Accessible.name: qsTr("Writing sample")
                    onTextChanged: page.model.sampleText = text
                    // Tab leaves the field, as in a form: otherwise the keyboard could not reach the buttons.
                    KeyNavigation.priority: KeyNavigation.BeforeItem
                    KeyNavigation.tab: skip
                    // Return starts a new line here, so Ctrl+Return finishes, as in the popup.
                    Keys.onPressed: event => {
                        if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter)
                                && (event.modifiers & Qt.ControlModifier)) {
                            if (page.model.canFinish)
                                page.model.advance();
                            event.accepted = true;
                        }
                    }
                }
            }
            Text {
                x: 18
                y: 18
                visible: page.model.sampleText.length === 0
                text: qsTr("e.g. \"Hey — quick note before I forget: the client meeting got pushed…\"")
                font.pixelSize: 12
                color: Theme.withAlpha(Theme.secondary, 0.6)
                Accessible.ignored: true
            }
        }
        RowLayout {
            Layout.topMargin: 8
            spacing: 6
            opacity: page.appear
            Icon {
                source: Qt.resolvedUrl("icons/info.svg")
                size: 11
                color: Theme.secondary
            }
            Text {
                objectName: "storedSamples"
                Layout.fillWidth: true
                // Samples from an earlier start stay; this one joins them.
                text: {
                    const stored = page.model.storedSamples;
                    if (stored.length === 0)
                        return qsTr("You can add more samples anytime in Settings.");
                    const first = stored[0].replace(/\s+/g, " ").trim();
                    return stored.length === 1
                        ? qsTr("1 sample stored already (“%1”); this one is added to it.").arg(first)
                        : qsTr("%1 samples stored already (“%2”, …); this one is added to them.")
                              .arg(stored.length).arg(first);
                }
                elide: Text.ElideMiddle
                font.pixelSize: 11
                color: Theme.secondary
            }
        }
        Item { Layout.fillHeight: true }
        RowLayout {
            Layout.fillWidth: true
            opacity: page.appear
            PlainButton {
                id: skip
                objectName: "skip"
                text: qsTr("Skip for now")
                color: Theme.secondary
                onClicked: page.model.advance()
            }
            Item { Layout.fillWidth: true }
            PrimaryButton {
                objectName: "finishSetup"
                // The choice of a model follows unless one is usable already.
                text: page.model.serviceUsable ? qsTr("Finish setup") : qsTr("Continue")
                iconSource: page.model.serviceUsable ? "qrc:/qt/qml/Tessary/Ui/icons/checkmark.svg"
                                                     : Qt.resolvedUrl("icons/arrow-right.svg")
                disabled: !page.model.canFinish
                onActivated: page.model.advance()
            }
        }
    }
}
