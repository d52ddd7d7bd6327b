#include "compositor/GlName.h"

namespace marlowick {

void gl::deleteTexture(GLuint name) {
    glDeleteTextures(1, &name);
}
void gl::deleteBuffer(GLuint name) {
    glDeleteBuffers(1, &name);
}
void gl::deleteFramebuffer(GLuint name) {
    glDeleteFramebuffers(1, &name);
}
void gl::deleteVertexArray(GLuint name) {
    glDeleteVertexArrays(1, &name);
}
void gl::deleteProgram(GLuint name) {
    glDeleteProgram(name);
}

GLuint gl::newTexture() {
    GLuint name = 0;
    glGenTextures(1, &name);
    return name;
}

} // namespace marlowick
