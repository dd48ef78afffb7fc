// Conversions between Y0 Cb Y1 Cr and 10-bit 4:2:2 packed in 32-bit words, which are texels of four bytes.
#ifndef QX_TEN_BIT_FXH
#define QX_TEN_BIT_FXH

#include "Components.fxh"

// Converts 10-bit codes to the target's depth. The result is to be truncated.
float4 fromTenBits(float4 codes)
{
    return codes * (stepOf(targetMax) * 0.25) + 0.5;
}

// Converts components to 10 bits, rounded to nearest.
float4 toTenBits(float4 components)
{
    return min(floor(components * (inverseStepOf(inputMax) * 4.0) + 0.5), 1023.0);
}

int4 bytesAt(int2 at)
{
    return int4(componentsAt(at));
}

float4 texelOfBytes(int4 bytes)
{
    return texelOf(float4(bytes));
}

// Returns the 10-bit codes of a pair of pixels of the source, in the order of its components. `pairs` is the
// picture's width in pairs. The image may lack a half pair, at an odd width; the pair before is used instead.
// 0 beyond the picture and the image.
float4 tenBitsOfPair(int pair, int row, float pairs)
{
    bool isHalf = float(pair) < pairs && float(pair) + 1.0 > pairs;
    bool lacks = pair >= int(inputSize.x);
    float4 components = componentsAt(int2(lacks ? pair - 1 : pair, row));
    return float(pair) < pairs && (isHalf || !lacks) ? toTenBits(components) : float4(0.0, 0.0, 0.0, 0.0);
}

// ---- Three components a word, in the order Cb Y0 Cr Y1 ----

#define V210 0
#define DVS_UPPER_BITS 1

// v210 has three fields of 10 bits, from bit 0. The DVS layout has the upper eight bits of each component in
// its own byte and the lower two in the fourth byte; the lower ones are ignored here.
float3 fieldsOf(int4 b, int packing)
{
    if (packing == DVS_UPPER_BITS)
    {
        return float3(b.xyz) * 4.0;
    }
    return float3(b.x | ((b.y & 3) << 8), (b.y >> 2) | ((b.z & 15) << 6), (b.z >> 4) | ((b.w & 63) << 4));
}

// Three pairs occupy four words. The four components of a pair begin in the word with the pair's index among
// the three.
float4 pairFromWords(int2 at, int packing)
{
    int three = quotient(at.x, 3);
    int place = at.x - three * 3;
    int4 first = bytesAt(int2(three * 4, at.y));
    int4 second = bytesAt(int2(three * 4 + 1, at.y));
    int4 third = bytesAt(int2(three * 4 + 2, at.y));
    int4 last = bytesAt(int2(three * 4 + 3, at.y));
    int4 one = place == 0 ? first : (place == 1 ? second : third);
    int4 two = place == 0 ? second : (place == 1 ? third : last);
    return texelOf(fromTenBits(fourOf(fieldsOf(one, packing), fieldsOf(two, packing), place).yxwz));
}

// The three components of a v210 word begin at component 3 x word of the row.
float4 v210Word(int2 at, float pairs)
{
    int first = at.x * 3;
    int pair = first >> 2;
    int3 f = int3(threeOf(tenBitsOfPair(pair, at.y, pairs).yxwz, tenBitsOfPair(pair + 1, at.y, pairs).yxwz,
                          first & 3));
    return texelOfBytes(int4(f.x & 255, (f.x >> 8) | ((f.y & 63) << 2), (f.y >> 6) | ((f.z & 15) << 4),
                             f.z >> 4));
}

// ---- Blocks of 8 pairs in 10 words: upper eight bits of a pair in each of 8, then the lower two bits ----

#define MATROX_PAIRS 8
#define MATROX_PAIRS_LOG2 3
#define MATROX_WORDS 10

// Returns a pair. Lower bits beyond the end of the row are 0.
float4 pairFromMatrox(int2 at, int rowWords, bool upperBitsOnly)
{
    int block = at.x >> MATROX_PAIRS_LOG2;
    int place = at.x & (MATROX_PAIRS - 1);
    float4 codes = float4(bytesAt(int2(block * MATROX_WORDS + place, at.y))) * 4.0;
    if (!upperBitsOnly)
    {
        int word = block * MATROX_WORDS + MATROX_PAIRS + (place >> 2);
        int lower = int(componentAt(word * 4 + (place & 3), at.y));
        codes += word < rowWords ? float4(lower & 3, (lower >> 2) & 3, (lower >> 4) & 3, lower >> 6)
                                 : float4(0.0, 0.0, 0.0, 0.0);
    }
    return texelOf(fromTenBits(codes));
}

int lowerBitsOf(int4 codes)
{
    int4 c = codes & 3;
    return c.x | (c.y << 2) | (c.z << 4) | (c.w << 6);
}

// As toTenBits(), in whole numbers.
int4 wholeTenBits(float4 components)
{
    int4 c = int4(components);
    int4 most = int4(1023, 1023, 1023, 1023);
    return inputMax > 1023.5 ? min((c + 32) >> 6, most) : (inputMax > 255.5 ? c : c * 4);
}

// The lower bits of a pair; of a half pair that the image lacks those of `edge`. `count` pairs are there.
int lowerBitsOfPair(int pair, int row, int4 edge, int count)
{
    int own = lowerBitsOf(wholeTenBits(componentsAt(int2(pair, row))));
    int bits = pair < int(inputSize.x) ? own : lowerBitsOf(edge);
    return pair < count ? bits : 0;
}

// A word is one of four neighbours, which a device may compute together. Two of the four, the first or the
// last ones, may be the words of lower bits. All of a word's reads are by even numbers and constants, and
// there is no branch, so that neighbours share what they read and compute.
float4 matroxWord(int2 at, float pairs)
{
    int width = int(inputSize.x);
    int count = pairs <= inputSize.x + 0.5 ? int(ceil(pairs)) : width; // the image may lack a half pair
    int lastTwo = ((width - 1) >> 1) * 2;
    float4 even = componentsAt(int2(lastTwo, at.y));
    float4 odd = componentsAt(int2(lastTwo + 1, at.y));
    int4 edge = wholeTenBits((width & 1) != 0 ? even : odd);

    int twos = (at.x >> 2) * 2;
    int block = quotient(twos, MATROX_WORDS / 2);
    int place = twos - block * (MATROX_WORDS / 2) + ((at.x >> 1) & 1); // of two words; 5 is in the next block
    int pair = (block * 4 + min(place, MATROX_PAIRS / 2)) * 2 + (at.x & 1);
    int4 own = wholeTenBits(componentsAt(int2(pair, at.y)));
    int4 upper = (pair < width ? own : edge) >> 2;
    upper = pair < count ? upper : int4(0, 0, 0, 0);

    int first = block * MATROX_PAIRS + (at.x & 1) * 4;
    int4 lower = int4(lowerBitsOfPair(first, at.y, edge, count),
                      lowerBitsOfPair(first + 1, at.y, edge, count),
                      lowerBitsOfPair(first + 2, at.y, edge, count),
                      lowerBitsOfPair(first + 3, at.y, edge, count));
    return texelOfBytes(place == MATROX_PAIRS / 2 ? lower : upper);
}

#endif
