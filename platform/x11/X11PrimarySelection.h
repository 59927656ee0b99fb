#pragma once

#include "Platform.h"
#include "X11Connection.h"

class QClipboard;

// The PRIMARY selection read over our own X connection: the owner is asked to convert
// it to text onto our window, and the text is read when its answer comes, through the
// event loop. Taken through QClipboard, which then answers the other programs' requests.
class X11PrimarySelection : public PrimarySelection
{
public:
    X11PrimarySelection(std::shared_ptr<X11Connection> x11, QClipboard *clipboard);

    void text(const RunningApplication &app, std::function<void(std::optional<QString>)> done) override;
    void setText(const QString &text) override;

private:
    void convert(xcb_atom_t target, std::function<void(std::optional<QString>)> done);

    std::shared_ptr<X11Connection> m_x11;
    QClipboard *m_clipboard;
};
