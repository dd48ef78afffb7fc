#version 450

// Counts the codes of a picture for waveform monitors, vectorscopes and chromaticity diagrams: see
// host/gpu/scopes. Codes are computed with integers, so that every device counts the same.

layout(local_size_x = 64) in;

layout(set = 0, binding = 0) uniform sampler2D picture;

// A code is (offset + weights * components) >> fraction; components that lower it are counted from their largest code.
struct Signal
{
    uvec4 weights;  // of red, green and blue
    uvec4 inverted; // 1 if it lowers the code
    uvec4 offset;   // low and high word
};

const uint luma = 0;
const uint red = 1;
const uint green = 2;
const uint blue = 3;
const uint cb = 4;
const uint cr = 5;

layout(set = 0, binding = 1) uniform Request
{
    Signal signals[6];
    uvec4 toXYZ[3];   // times 2^14; columns are of red, green and blue
    uvec4 light[128]; // 1024 numbers of 16 bits, the lower half of a word first
    uvec2 size;       // of the picture
    uint columns;
    uint levels;
    uint vectorscope;
    uint chromaticity;
    uint largest; // code of the picture
    uint rows;    // that an invocation counts
    uint fraction; // 28 to 36
};

layout(set = 0, binding = 2) buffer Counts
{
    uint counts[];
};

uint codeOf(uint which, uvec3 pixel)
{
    uint low = signals[which].offset.x;
    uint high = signals[which].offset.y;
    for (int i = 0; i < 3; ++i) {
        uint component = signals[which].inverted[i] != 0 ? largest - pixel[i] : pixel[i];
        uint productHigh, productLow, carry;
        umulExtended(signals[which].weights[i], component, productHigh, productLow);
        low = uaddCarry(low, productLow, carry);
        high += productHigh + carry;
    }
    uint code = fraction < 32 ? high << (32 - fraction) | low >> fraction : high >> (fraction - 32);
    return min(code, levels - 1);
}

uint lightOf(uint code)
{
    uint tone = (code * 1023 + largest / 2) / largest;
    uint word = light[tone >> 3][tone >> 1 & 3];
    return (tone & 1) != 0 ? word >> 16 : word & 0xffff;
}

void countChromaticity(uvec3 pixel, uint begin)
{
    uvec3 linear = uvec3(lightOf(pixel.r), lightOf(pixel.g), lightOf(pixel.b));
    uvec3 xyz = toXYZ[0].xyz * linear.r + toXYZ[1].xyz * linear.g + toXYZ[2].xyz * linear.b;
    uint sum = (xyz.x + xyz.y + xyz.z) >> 11;
    if (xyz.y < 1u << 20) {
        return; // 1/1024 of white's
    }
    // 0 to 0.9 of the sum.
    uvec2 cell = (xyz.xy >> 11) * (chromaticity * 10) / (sum * 9);
    if (cell.x < chromaticity && cell.y < chromaticity) {
        atomicAdd(counts[begin + cell.y * chromaticity + cell.x], 1);
    }
}

void count(uint x, uint y)
{
    vec3 levelsOfPixel = clamp(texelFetch(picture, ivec2(x, y), 0).rgb, 0.0, 1.0);
    uvec3 pixel = uvec3(levelsOfPixel * float(largest) + 0.5);
    uint column = x * columns / size.x;
    uint waveform = columns * levels;
    for (uint which = luma; which <= blue; ++which) {
        atomicAdd(counts[which * waveform + codeOf(which, pixel) * columns + column], 1);
    }
    if (vectorscope != 0) {
        uint cell = codeOf(cr, pixel) * vectorscope / levels * vectorscope + codeOf(cb, pixel) * vectorscope / levels;
        atomicAdd(counts[4 * waveform + cell], 1);
    }
    if (chromaticity != 0) {
        countChromaticity(pixel, 4 * waveform + vectorscope * vectorscope);
    }
}

void main()
{
    uint x = gl_GlobalInvocationID.x;
    uint first = gl_GlobalInvocationID.y * rows;
    if (x < size.x) {
        for (uint y = first; y < min(first + rows, size.y); ++y) {
            count(x, y);
        }
    }
}
