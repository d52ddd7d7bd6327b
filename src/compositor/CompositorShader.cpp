#include "compositor/CompositorShader.h"

namespace marlowick {

const char* const compositorVertexSource = R"glsl(#version 330 core
// 1 when the framebuffer's first row is to hold the canvas's top row (offscreen frames read back
// top-down); 0 for a window, whose first row is its bottom.
uniform float topRowFirst;
out vec2 uv;

void main() {
    // One triangle covering all of clip space: (-1, -3), (-1, 1), (3, 1).
    vec2 position = vec2(gl_VertexID == 2 ? 3.0 : -1.0, gl_VertexID == 0 ? -3.0 : 1.0);
    uv = vec2((position.x + 1.0) * 0.5, 1.0 - (position.y + 1.0) * 0.5);
    gl_Position = vec4(position.x, topRowFirst > 0.5 ? -position.y : position.y, 0.0, 1.0);
}
)glsl";

const char* const compositorFragmentSource = R"glsl(#version 330 core
// Each pass sits under a feature switch (MW_TILT, MW_UNDER, MW_SHADOW, MW_DEVICE, MW_SURFACE, MW_RIPPLE,
// MW_CURSOR, MW_CAPTION), and MW_INTERIOR keeps only what the inside of an untilted recording needs.
// With all the passes defined this is the whole program; a variant without some is drawn only over
// pixels where the passes it lacks contribute nothing, so every pixel comes out the same.
layout(std140) uniform FrameUniforms {
    vec4 backgroundTop;
    vec4 backgroundBottom;
    vec4 shadowColor;
    vec2 canvasSize;
    vec2 surfaceOrigin;
    vec2 surfaceSize;
    vec2 cameraCenter;
    float cameraScale;
    float cornerRadius;
    float shadowRadius;
    vec2 shadowOffset;
    float gradientAngle;
    float backgroundMode;
    vec2 cursorPosition;
    vec2 ripplePosition;
    float cursorSize;
    float cursorOpacity;
    float rippleProgress;
    vec2 bodyOrigin;
    vec2 bodySize;
    vec2 screenOrigin;
    vec2 screenSize;
    vec4 bodyColor;
    float bodyRadius;
    float screenRadius;
    float deviceMode;
    float notchWidth;
    vec2 captionOrigin;
    vec2 captionSize;
    mat3 tiltInverse;
    vec2 tiltCenter;
    float tiltEnabled;
    vec2 sourceCrop;
};

uniform sampler2D source;
uniform sampler2D caption;
in vec2 uv;
out vec4 fragColor;

const vec4 screenBlack = vec4(0.02, 0.02, 0.025, 1.0);

// A straight colour with a coverage, premultiplied.
vec4 premul(vec4 colour, float coverage) {
    float a = colour.a * coverage;
    return vec4(colour.rgb * a, a);
}

vec4 over(vec4 src, vec4 dst) { return src + dst * (1.0 - src.a); }

float roundedBoxSDF(vec2 point, vec2 halfSize, float radius) {
    vec2 q = abs(point) - halfSize + radius;
    return length(max(q, 0.0)) + min(max(q.x, q.y), 0.0) - radius;
}

float triangleSDF(vec2 p, vec2 a, vec2 b, vec2 c) {
    vec2 e0 = b - a, e1 = c - b, e2 = a - c;
    vec2 pa = p - a, pb = p - b, pc = p - c;
    vec2 pq0 = pa - e0 * clamp(dot(pa, e0) / dot(e0, e0), 0.0, 1.0);
    vec2 pq1 = pb - e1 * clamp(dot(pb, e1) / dot(e1, e1), 0.0, 1.0);
    vec2 pq2 = pc - e2 * clamp(dot(pc, e2) / dot(e2, e2), 0.0, 1.0);
    float s = sign(e0.x * e2.y - e0.y * e2.x);
    vec2 d = min(min(vec2(dot(pq0, pq0), s * (pa.x * e0.y - pa.y * e0.x)),
                     vec2(dot(pq1, pq1), s * (pb.x * e1.y - pb.y * e1.x))),
                 vec2(dot(pq2, pq2), s * (pc.x * e2.y - pc.y * e2.x)));
    return -sqrt(d.x) * sign(d.y);
}

float fillOf(float distance) { return 1.0 - smoothstep(-1.0, 1.0, distance); }

// A point of the surface in source space, and back to canvas pixels, through the crop and the camera.
vec2 toCanvas(vec2 sourcePoint) {
    vec2 local = (sourcePoint - cameraCenter) * cameraScale / sourceCrop + 0.5;
    return surfaceOrigin + local * surfaceSize;
}

void main() {
    vec2 pixel = uv * canvasSize;

#ifdef MW_INTERIOR
    // Deep inside an untilted recording: coverage 1 over an opaque frame, so every later step leaves the
    // frame's colour exactly as it is (times 1, plus 0, over 1).
    vec2 inside = (pixel - surfaceOrigin) / surfaceSize;
    vec2 insideUV = ((inside - 0.5) * sourceCrop) / max(cameraScale, 0.0001) + cameraCenter;
    fragColor = vec4(texture(source, clamp(insideUV, 0.0, 1.0)).rgb, 1.0);
    return;
#endif

    // Where on the tilted plane this pixel came from. Everything lying in the scene works in plane
    // coordinates; the background and the captions keep the untilted pixel.
    vec2 scenePixel = pixel;
#ifdef MW_TILT
    if (tiltEnabled > 0.5) {
        vec3 mapped = tiltInverse * vec3(pixel - tiltCenter, 1.0);
        // A plane point in front of the eye has a positive depth; at the horizon it reaches 0, and
        // beyond it the inverse would hand back a mirrored point behind the eye.
        if (mapped.z < 1e-6) {
            fragColor = vec4(0.0);
            return;
        }
        scenePixel = mapped.xy / mapped.z + tiltCenter;
    }
#endif

    vec2 halfSize = surfaceSize * 0.5;
    vec2 centre = surfaceOrigin + halfSize;
    bool hasDevice = deviceMode > 0.5;
#ifdef MW_SURFACE
    float surfaceDist = roundedBoxSDF(scenePixel - centre, halfSize, cornerRadius);
#else
    float surfaceDist = 2.0; // drawn only over pixels more than two pixels outside the surface
#endif

    // Where the recording covers the pixel fully (coverage exactly 1 over an opaque frame), whatever lies
    // beneath it is multiplied by zero: the background, shadow and device passes are skipped there.
    vec4 colour = vec4(0.0);
#ifdef MW_UNDER
    if (surfaceDist > -1.0) {
        if (backgroundMode > 1.5) {
            colour = vec4(0.0);
        } else if (backgroundMode < 0.5) {
            colour = premul(backgroundTop, 1.0);
        } else {
            vec2 dir = vec2(cos(gradientAngle), sin(gradientAngle));
            float extent = abs(dir.x) * canvasSize.x + abs(dir.y) * canvasSize.y;
            float t = clamp(dot(pixel, dir) / max(extent, 1.0) + 0.5, 0.0, 1.0);
            colour = premul(mix(backgroundTop, backgroundBottom, t), 1.0);
        }


#ifdef MW_SHADOW
        // The shadow of what the viewer sees as the object: the device's body, or the surface.
        if (shadowRadius > 0.0) {
            vec2 shadowHalf = hasDevice ? bodySize * 0.5 : halfSize;
            vec2 shadowCentre = hasDevice ? bodyOrigin + shadowHalf : centre;
            float shadowCorner = hasDevice ? bodyRadius : cornerRadius;
            float shadowDist = roundedBoxSDF(scenePixel - shadowCentre - shadowOffset, shadowHalf, shadowCorner);
            // Only pixels within the blur's reach of the object get a shadow; smoothstep is 1 beyond it.
            if (shadowDist < shadowRadius) {
                float shadow = 1.0 - smoothstep(0.0, shadowRadius, shadowDist);
                colour = over(premul(shadowColor, shadow), colour);
            }
        }
#endif

#ifdef MW_DEVICE
        if (hasDevice) {
            if (deviceMode > 2.5) {
                float baseHeight = bodySize.y * 0.10;
                vec2 bodyBottom = vec2(bodyOrigin.x + bodySize.x * 0.5, bodyOrigin.y + bodySize.y);
                if (deviceMode > 3.5) {
                    // A display: a neck into a foot.
                    float neckWidth = bodySize.x * 0.10;
                    float baseWidth = bodySize.x * 0.34;
                    vec2 neckHalf = vec2(neckWidth * 0.5, baseHeight * 0.55);
                    float neck = roundedBoxSDF(scenePixel - (bodyBottom + vec2(0.0, neckHalf.y)), neckHalf,
                                               baseHeight * 0.06);
                    vec2 footHalf = vec2(baseWidth * 0.5, baseHeight * 0.10);
                    vec2 footCentre = bodyBottom + vec2(0.0, baseHeight * 1.05);
                    float foot = roundedBoxSDF(scenePixel - footCentre, footHalf, footHalf.y);
                    colour = over(premul(bodyColor, fillOf(min(neck, foot))), colour);
                } else {
                    // A laptop: a shallow slab slightly wider than the lid.
                    float baseWidth = bodySize.x * 1.02;
                    vec2 baseHalf = vec2(baseWidth * 0.5, baseHeight * 0.28);
                    vec2 baseCentre = bodyBottom + vec2(0.0, baseHalf.y);
                    float slab = roundedBoxSDF(scenePixel - baseCentre, baseHalf, baseHalf.y * 0.7);
                    colour = over(premul(bodyColor, fillOf(slab)), colour);
                }
            }
            vec2 bodyHalf = bodySize * 0.5;
            colour = over(premul(bodyColor, fillOf(roundedBoxSDF(scenePixel - (bodyOrigin + bodyHalf), bodyHalf,
                                                                 bodyRadius))),
                          colour);
            // The screen well: black behind the recording, so a capture of another shape letterboxes.
            vec2 screenHalf = screenSize * 0.5;
            colour = over(premul(screenBlack, fillOf(roundedBoxSDF(scenePixel - (screenOrigin + screenHalf),
                                                                   screenHalf, screenRadius))),
                          colour);
        }
#endif
    }
#endif

#ifdef MW_SURFACE
    if (surfaceDist < 1.0) {
        vec2 local = (scenePixel - surfaceOrigin) / surfaceSize;
        // The crop first, then the camera. The layout keeps the camera's view inside the source, so only
        // the smoothed rim just outside the surface samples past its edge, where the edge pixels repeat.
        vec2 sampleUV = ((local - 0.5) * sourceCrop) / max(cameraScale, 0.0001) + cameraCenter;
        vec4 frame = texture(source, clamp(sampleUV, 0.0, 1.0));
        float coverage = fillOf(surfaceDist);
        colour = over(premul(vec4(frame.rgb, 1.0), coverage), colour);

#ifdef MW_RIPPLE
        // The click ripple, under the cursor; both move with the content as the camera does.
        if (rippleProgress >= 0.0) {
            float radius = mix(2.0, cursorSize * 1.8, rippleProgress) * cameraScale;
            float thickness = max(1.5, cursorSize * 0.12 * cameraScale);
            float ring = abs(distance(scenePixel, toCanvas(ripplePosition)) - radius);
            // Only pixels near the ring can be touched by it.
            if (ring < thickness) {
                float alpha = (1.0 - smoothstep(0.0, thickness, ring)) * (1.0 - rippleProgress) * 0.9;
                colour = over(premul(vec4(1.0), alpha * coverage), colour);
            }
        }
#endif

#ifdef MW_CURSOR
        if (cursorOpacity > 0.001) {
            float size = cursorSize * cameraScale;
            vec2 q = scenePixel - toCanvas(cursorPosition);
            // The arrow and its tail lie within 1.2 sizes of the tip; outline and fill reach 1.5
            // pixels and a little of the size beyond their shapes.
            float reach = size * 0.06 + 1.5;
            if (q.x > -reach && q.y > -reach && q.x < size * 0.7 + reach && q.y < size * 1.1 + reach) {
                float arrow = triangleSDF(q, vec2(0.0), vec2(0.0, size), vec2(size * 0.70, size * 0.70));
                float tail = triangleSDF(q, vec2(size * 0.26, size * 0.62), vec2(size * 0.50, size * 1.02),
                                         vec2(size * 0.30, size * 1.10));
                float cursorDist = min(arrow, tail);
                float outline = 1.0 - smoothstep(0.0, 1.5, cursorDist - size * 0.06);
                float fill = 1.0 - smoothstep(0.0, 1.5, cursorDist);
                colour = over(premul(vec4(0.0, 0.0, 0.0, 1.0), outline * cursorOpacity), colour);
                colour = over(premul(vec4(1.0), fill * cursorOpacity), colour);
            }
        }
#endif
    }
#endif

#ifdef MW_DEVICE
    // The camera housing straddles the screen's top edge, merging into the bezel.
    if (hasDevice && notchWidth > 0.0) {
        float notchHeight = bodySize.x * 0.024;
        vec2 notchHalf = vec2(notchWidth * 0.5, notchHeight * 0.5);
        vec2 notchCentre = vec2(screenOrigin.x + screenSize.x * 0.5, screenOrigin.y);
        colour = over(premul(screenBlack, fillOf(roundedBoxSDF(scenePixel - notchCentre, notchHalf, notchHalf.y))),
                      colour);
    }
#endif

#ifdef MW_CAPTION
    // Captions belong to the finished video: untilted, over everything, never moved by the camera. The
    // texture is premultiplied already.
    if (captionSize.x > 0.5 && captionSize.y > 0.5) {
        vec2 local = (pixel - captionOrigin) / captionSize;
        if (all(greaterThanEqual(local, vec2(0.0))) && all(lessThanEqual(local, vec2(1.0)))) {
            colour = over(texture(caption, local), colour);
        }
    }
#endif

    float outAlpha = colour.a;
    fragColor = outAlpha > 0.0001 ? vec4(colour.rgb / outAlpha, outAlpha) : vec4(0.0, 0.0, 0.0, outAlpha);
}
)glsl";

} // namespace marlowick
