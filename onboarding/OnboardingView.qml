pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Onboarding

// The first-run window: welcome, a first writing sample, the language model, done.
Window {
    id: root
    required property OnboardingModel model

    title: qsTr("Welcome to Tessary")
    width: 640
    height: 480
    minimumWidth: width
    maximumWidth: width
    minimumHeight: height
    maximumHeight: height
    color: Theme.background
    // A close is no "finish": it keeps nothing the flow has not stored yet.
    onClosing: root.model.dismiss()

    // The whole window is a handle, as there is little title bar to grab.
    DragHandler {
        target: null
        onActiveChanged: if (active) root.startSystemMove()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 28
            Layout.rightMargin: 28
            Layout.topMargin: 22
            Layout.bottomMargin: 20
            spacing: 6

            Repeater {
                model: root.model.countedSteps
                Rectangle {
                    required property int index
                    readonly property bool filled: index < root.model.currentStep
                    implicitHeight: 4
                    implicitWidth: filled ? 20 : 8
                    radius: 2
                    color: filled ? Theme.purple : Theme.separator
                    Behavior on implicitWidth {
                        SpringMotion {
                            response: 0.4
                            dampingFraction: 0.7
                        }
                    }
                    Behavior on color {
                        ColorAnimation { duration: 250 }
                    }
                }
            }
            Item { Layout.fillWidth: true }
            Text {
                objectName: "stepCounter"
                text: root.model.stepCounter
                font.pixelSize: 11
                color: Theme.secondary
            }
        }

        // Pages only go forward: the new one slides in from the trailing edge while the
        // old one slides out towards the leading edge, both fading.
        Item {
            id: pages
            objectName: "pages"
            property Item current
            property Item leaving

            function create(component, properties) {
                const page = component.createObject(pages, properties);
                page.width = Qt.binding(() => pages.width);
                page.height = Qt.binding(() => pages.height);
                return page;
            }
            function show(component) {
                if (leaving)
                    leaving.destroy();
                leaving = current;
                leaving.enabled = false; // out of the Tab chain and deaf while it slides away
                current = create(component, { x: pages.width, opacity: 0 });
                // The leaving page's button had the keyboard: the new page takes it, and shows
                // where it is.
                current.forceActiveFocus(Qt.TabFocusReason);
                enter.restart();
            }

            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            Component.onCompleted: current = create(welcome, {})

            // Once faded, the leaving page is hidden at once rather than when its spring
            // settles: until then a screen reader still finds its buttons on screen.
            Connections {
                target: pages.leaving
                function onOpacityChanged() {
                    if (pages.leaving.opacity < 0.05)
                        pages.leaving.visible = false;
                }
            }

            ParallelAnimation {
                id: enter
                SpringMotion { target: pages.current; property: "x"; to: 0; response: 0.42; dampingFraction: 0.82 }
                SpringMotion { target: pages.current; property: "opacity"; to: 1; response: 0.42; dampingFraction: 0.82 }
                SpringMotion { target: pages.leaving; property: "x"; to: -pages.width; response: 0.42; dampingFraction: 0.82 }
                SpringMotion { target: pages.leaving; property: "opacity"; to: 0; response: 0.42; dampingFraction: 0.82 }
                onFinished: {
                    if (pages.leaving)
                        pages.leaving.destroy();
                    pages.leaving = null;
                }
            }
        }
    }

    Component {
        id: welcome
        WelcomeStep {
            trayShown: root.model.trayShown
            onNext: root.model.advance()
        }
    }
    Component {
        id: addSample
        AddSampleStep { model: root.model }
    }
    Component {
        id: chooseModel
        ChooseModelStep { model: root.model }
    }
    Component {
        id: done
        DoneStep { model: root.model }
    }

    Connections {
        target: root.model
        function onCurrentStepChanged() {
            const step = root.model.currentStep;
            pages.show(step === OnboardingModel.AddSample ? addSample
                     : step === OnboardingModel.ChooseModel ? chooseModel : done);
        }
    }
}
