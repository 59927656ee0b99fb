#pragma once

// Picks how Qt Quick draws our windows; call once before the first window exists.
//
// Tessary's windows are small and mostly text. Qt Quick's own software renderer redraws
// only the parts that changed and needs no OpenGL context per window, so a new popup is
// on screen several times sooner and a fast stream of text stays smooth, most of all on
// machines where OpenGL itself is rendered in software.
namespace SceneGraph {
void chooseRenderer();
}
