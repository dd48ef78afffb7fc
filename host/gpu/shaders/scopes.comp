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
    uvec4 toXYZ[3]; // times 2^20; columns are of red, green and blue
    uvec2 size;     // of the picture
    uint columns;
    uint levels;
    uint vectorscope;
    uint chromaticity;
    uint largest; // code of the picture
    uint rows;    // that an invocation counts
    uint fraction; // 28 to 36
};

// Behind the counts, the light of each code, times 2^26.
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

// Numbers of 64 bits: the low word, and the high one.
uvec2 sum(uvec2 a, uvec2 b)
{
    uint carry;
    uint low = uaddCarry(a.x, b.x, carry);
    return uvec2(low, a.y + b.y + carry);
}

uvec2 product(uvec2 a, uint b)
{
    uint high, low;
    umulExtended(a.x, b, high, low);
    return uvec2(low, high + a.y * b);
}

bool isLess(uvec2 a, uvec2 b)
{
    return a.y < b.y || (a.y == b.y && a.x < b.x);
}

// The cell of part / whole, of which 0.9 is at the end of the last: the largest with
// cell * 9 * whole <= chromaticity * 10 * part. Both numbers have 48 bits at most.
uint cellOf(uvec2 part, uvec2 whole)
{
    uvec2 share = product(part, chromaticity * 10);
    // Floats give it, or one beside it.
    float ratio = (float(part.y) * 4294967296.0 + float(part.x)) / (float(whole.y) * 4294967296.0 + float(whole.x));
    uint cell = uint(ratio * float(chromaticity) / 0.9);
    cell -= cell > 0 && isLess(share, product(whole, cell * 9)) ? 1 : 0;
    cell += isLess(share, product(whole, (cell + 1) * 9)) ? 0 : 1;
    return cell;
}

void countChromaticity(uvec3 pixel, uint begin)
{
    uvec2 xyz[3] = uvec2[3](uvec2(0), uvec2(0), uvec2(0));
    for (int i = 0; i < 3; ++i) {
        uint light = counts[begin + chromaticity * chromaticity + pixel[i]];
        for (int row = 0; row < 3; ++row) {
            xyz[row] = sum(xyz[row], product(uvec2(light, 0), toXYZ[i][row]));
        }
    }
    if (xyz[1].y < 1u << 4) {
        return; // 2^-10 of white's, which has 2^46
    }
    uvec2 whole = sum(sum(xyz[0], xyz[1]), xyz[2]);
    uvec2 cell = uvec2(cellOf(xyz[0], whole), cellOf(xyz[1], whole));
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
