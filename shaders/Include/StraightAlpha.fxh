// Mixing pictures with straight alpha: colours are stored as they are, not multiplied by their alpha.
#ifndef QX_STRAIGHT_ALPHA_FXH
#define QX_STRAIGHT_ALPHA_FXH

// Returns the colour multiplied by its alpha. Sums and means of colours are taken in this form, in which
// what is transparent does not count.
float4 premultiplied(float4 colour)
{
    return float4(colour.rgb * colour.a, colour.a);
}

float4 straight(float4 colour)
{
    return colour.a > 0.0 ? float4(colour.rgb / colour.a, colour.a) : float4(0.0, 0.0, 0.0, 0.0);
}

// Returns the mean of two colours with that share of the second: the first itself for 0, the second itself
// for 1. With equal alphas it is the plain mean.
float4 mixed(float4 first, float4 second, float share)
{
    float4 plain = lerp(first, second, share);
    float4 weighed = straight(lerp(premultiplied(first), premultiplied(second), share));
    float4 mean = first.a == second.a ? plain : weighed;
    return share <= 0.0 ? first : (share >= 1.0 ? second : mean);
}

#endif
