// The full compositor pass at 1920×1080 and 3840×2160, beside a plain one-texture blit of the same size:
// the least any full-screen pass costs on this GL. Each iteration draws and waits for the GPU to finish.

#include "compositor/EglContext.h"
#include "compositor/FrameCompositor.h"
#include "compositor/RenderTarget.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

using namespace marlowick;

namespace {

// A recording with some texture: coloured stripes and a grid, as a screen take would have.
std::vector<std::uint8_t> pattern(int width, int height) {
    std::vector<std::uint8_t> bgra(static_cast<std::size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = &bgra[(static_cast<std::size_t>(y) * width + x) * 4];
            const bool line = x % 64 == 0 || y % 64 == 0;
            p[0] = line ? 40 : static_cast<std::uint8_t>(x * 255 / width);
            p[1] = line ? 40 : static_cast<std::uint8_t>(y * 255 / height);
            p[2] = line ? 40 : 200;
            p[3] = 255;
        }
    }
    return bgra;
}

struct Gpu {
    EglContext context;
    FrameCompositor compositor;
    std::unique_ptr<BgraTexture> source;
    int sourceHeight = 0;
    GlProgram blit;

    Gpu() {
        const char* vertex = R"(#version 330 core
out vec2 uv;
void main() {
    vec2 position = vec2(gl_VertexID == 2 ? 3.0 : -1.0, gl_VertexID == 0 ? -3.0 : 1.0);
    uv = vec2((position.x + 1.0) * 0.5, 1.0 - (position.y + 1.0) * 0.5);
    gl_Position = vec4(position, 0.0, 1.0);
})";
        const char* fragment = R"(#version 330 core
uniform sampler2D source;
in vec2 uv;
out vec4 fragColor;
void main() { fragColor = texture(source, uv); })";
        const GLuint program = glCreateProgram();
        for (const auto& [stage, text] :
             {std::pair{GL_VERTEX_SHADER, vertex}, std::pair{GL_FRAGMENT_SHADER, fragment}}) {
            const GLuint shader = glCreateShader(stage);
            glShaderSource(shader, 1, &text, nullptr);
            glCompileShader(shader);
            glAttachShader(program, shader);
            glDeleteShader(shader);
        }
        glLinkProgram(program);
        GLint linked = 0;
        glGetProgramiv(program, GL_LINK_STATUS, &linked);
        if (!linked) {
            throw std::runtime_error("the blit program doesn't link");
        }
        blit = GlProgram(program);
        std::fprintf(stderr, "GL renderer: %s\n", context.renderer());
    }

    const BgraTexture& sourceOf(int height) {
        if (height != sourceHeight) {
            const int width = height * 16 / 9;
            source = std::make_unique<BgraTexture>();
            const auto bytes = pattern(width, height);
            source->upload(bytes.data(), width, height, width * 4);
            sourceHeight = height;
        }
        return *source;
    }
};

Gpu& gpu() {
    static Gpu instance;
    return instance;
}

// A 16:9 canvas of the benchmark's height, bound, with a recording of the same size to draw from.
struct BenchCanvas {
    int height;
    int width;
    const BgraTexture& source;
    RenderTarget target;

    explicit BenchCanvas(const benchmark::State& state)
        : height(static_cast<int>(state.range(0)))
        , width(height * 16 / 9)
        , source(gpu().sourceOf(height))
        , target(width, height) {
        target.bind();
    }
};

// A typical frame: the fresh-recording look, zoomed in on a click, the cursor drawn with its ripple.
Project typicalProject(int height) {
    Project p;
    p.source.size = {height * 16.0 / 9.0, static_cast<double>(height)};
    p.source.duration = 10;
    p.canvas = Canvas::freshRecording();
    p.camera.beats = {ZoomBeat(Uuid::random(), 0, 10, {0.4, 0.45}, 1.6, 0.35, 0.35, Easing::easeInOut, true)};
    return p;
}

void Compositor(benchmark::State& state) {
    Gpu& g = gpu();
    const BenchCanvas c(state);
    const Project project = typicalProject(c.height);
    const CursorFrame cursor{{0.42, 0.47}, 1, 1, 0.3, {0.41, 0.46}};
    for (auto _ : state) {
        g.compositor.render(c.source, c.width, c.height, project, 5, cursor, true);
        glFinish();
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void Blit(benchmark::State& state) {
    Gpu& g = gpu();
    const BenchCanvas c(state);
    GlVertexArray vertexArray([] {
        GLuint name = 0;
        glGenVertexArrays(1, &name);
        return name;
    }());
    for (auto _ : state) {
        glUseProgram(g.blit.get());
        glActiveTexture(GL_TEXTURE0);
        glBindTexture(GL_TEXTURE_2D, c.source.get());
        glBindVertexArray(vertexArray.get());
        glDrawArrays(GL_TRIANGLES, 0, 3);
        glFinish();
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void CompositorWithReadback(benchmark::State& state) {
    Gpu& g = gpu();
    const BenchCanvas c(state);
    const Project project = typicalProject(c.height);
    for (auto _ : state) {
        g.compositor.render(c.source, c.width, c.height, project, 5, std::nullopt, true);
        benchmark::DoNotOptimize(c.target.readBgra().data());
    }
}

} // namespace

BENCHMARK(Compositor)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Blit)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(CompositorWithReadback)->Arg(1080)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
