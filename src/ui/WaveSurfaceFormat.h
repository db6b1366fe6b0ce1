#pragma once
// The surface format every wave context asks for: OpenGL 3.3 core (ES 3.0 where that is all there
// is) with an alpha channel, so the window can be translucent.

#include <QOpenGLContext>
#include <QSurfaceFormat>

namespace lorvane {

inline QSurfaceFormat waveSurfaceFormat() {
    QSurfaceFormat format;
    if (QOpenGLContext::openGLModuleType() == QOpenGLContext::LibGLES) {
        format.setRenderableType(QSurfaceFormat::OpenGLES);
        format.setVersion(3, 0);
    } else {
        format.setRenderableType(QSurfaceFormat::OpenGL);
        format.setVersion(3, 3);
        format.setProfile(QSurfaceFormat::CoreProfile);
    }
    format.setAlphaBufferSize(8);
    format.setDepthBufferSize(0);
    format.setStencilBufferSize(0);
    return format;
}

}  // namespace lorvane
