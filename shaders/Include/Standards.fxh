// The constants of the video standards. Macros, so that everything computed from them is a constant
// expression.
#ifndef QX_STANDARDS_FXH
#define QX_STANDARDS_FXH

// Weights of red and blue in luma; green has the rest.
#define KR_BT601 0.299
#define KB_BT601 0.114
// ITU-R BT.709-6, clause 3.2: E'Y = 0.2126 E'R + 0.7152 E'G + 0.0722 E'B.
#define KR_BT709 0.2126
#define KB_BT709 0.0722
// ITU-R BT.2020-2, table 4, non-constant luminance: Y' = 0.2627 R' + 0.6780 G' + 0.0593 B'.
#define KR_BT2020 0.2627
#define KB_BT2020 0.0593

// Ranges at 8 bits; at n bits they are 2^(n-8) times as large.
// ITU-R BT.601-7, clause 2.5.3, and BT.709-6, clause 3.4: luma and RGB black at 16, 219 codes up to white;
// colour difference zero at 128, 224 codes from one end to the other.
#define VIDEO_BLACK 16.0
#define VIDEO_LUMA_CODES 219.0
#define VIDEO_CHROMA_CODES 224.0
#define CHROMA_ZERO 128.0
// ITU-T H.273, clause 8.3, full range: black at 0, 2^n - 1 codes up to white and over the whole range of a
// colour difference, whose zero is at 2^(n-1).

#endif
