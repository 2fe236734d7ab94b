package com.morvin.dom.telephony.sniffer.sample.media;

/**
 * A decoder of ITU-T G.722 at 64 kbit/s: each byte yields two samples at 16 kHz. The signal has two bands, each coded
 * as adaptive differences from a prediction; the receive quadrature mirror filter combines them. The variables have the
 * names of the blocks in the recommendation.
 */
final class G722 {
  /** Table 14: 6-bit inverse quantizer of the lower band, by code word. */
  private static final int[] QM6 = {-136, -136, -136, -136, -24808, -21904, -19008, -16704, -14984, -13512, -12280,
      -11192, -10232, -9360, -8576, -7856, -7192, -6576, -6000, -5456, -4944, -4464, -4008, -3576, -3168, -2776, -2400,
      -2032, -1688, -1360, -1040, -728, 24808, 21904, 19008, 16704, 14984, 13512, 12280, 11192, 10232, 9360, 8576,
      7856, 7192, 6576, 6000, 5456, 4944, 4464, 4008, 3576, 3168, 2776, 2400, 2032, 1688, 1360, 1040, 728, 432, 136,
      -432, -136};
  /** 4-bit inverse quantizer of the lower band, the input of its predictor. */
  private static final int[] QM4 =
      {0, -20456, -12896, -8968, -6288, -4240, -2584, -1200, 20456, 12896, 8968, 6288, 4240, 2584, 1200, 0};
  /** 2-bit inverse quantizer of the higher band. */
  private static final int[] QM2 = {-7408, -1616, 7408, 1616};
  /** Logarithmic multipliers of the quantizer step, by code word. */
  private static final int[] WL = {-60, 3042, 1198, 538, 334, 172, 58, -30, 3042, 1198, 538, 334, 172, 58, -30, -60};
  private static final int[] WH = {798, -214, 798, -214};
  /** Table of the inverse logarithm. */
  private static final int[] ILB = {2048, 2093, 2139, 2186, 2233, 2282, 2332, 2383, 2435, 2489, 2543, 2599, 2656, 2714,
      2774, 2834, 2896, 2960, 3025, 3091, 3158, 3228, 3298, 3371, 3444, 3520, 3597, 3676, 3756, 3838, 3922, 4008};
  /** Coefficients of one phase of the quadrature mirror filter. The other phase has them in reverse order. */
  private static final int[] QMF = {3, -11, 12, 32, -210, 951, 3876, -805, 362, -156, 53, -11};

  /** One band: its quantizer step and its predictor of two poles and six zeros. */
  private static final class Band {
    private final int maxLogStep;
    private final int stepShift;
    private int nb;
    private int det;
    private int s;
    private int sz;
    private int r1;
    private int r2;
    private int p1;
    private int p2;
    private int a1;
    private int a2;
    private final int[] b = new int[6];
    private final int[] d = new int[6];

    Band(int det, int maxLogStep, int stepShift) {
      this.det = det;
      this.maxLogStep = maxLogStep;
      this.stepShift = stepShift;
    }

    /** Blocks LOGSCL or LOGSCH, SCALEL or SCALEH. */
    void scale(int weight) {
      nb = Math.min(Math.max((nb * 127 >> 7) + weight, 0), maxLogStep);
      int shift = stepShift - (nb >> 11);
      int mantissa = ILB[nb >> 6 & 31];
      det = (shift < 0 ? mantissa << -shift : mantissa >> shift) << 2;
    }

    /** Block 4: adapts the predictor to a difference and predicts the next value. */
    void adapt(int difference) {
      int p = saturate(sz + difference);
      int r = saturate(s + difference);
      adaptPoles(p);
      adaptZeros(difference);
      r2 = r1;
      r1 = r;
      p2 = p1;
      p1 = p;
      int poles = saturate((a1 * saturate(r1 + r1) >> 15) + (a2 * saturate(r2 + r2) >> 15));
      int zeros = 0;
      for (int i = 5; i >= 0; i--) {
        zeros += b[i] * saturate(d[i] + d[i]) >> 15;
      }
      sz = saturate(zeros);
      s = saturate(poles + sz);
    }

    /** Blocks UPPOL1 and UPPOL2. */
    private void adaptPoles(int p) {
      boolean sameAs1 = (p ^ p1) >= 0;
      boolean sameAs2 = (p ^ p2) >= 0;
      int step = saturate(a1 << 2);
      step = Math.min(sameAs1 ? -step : step, 32767);
      int second = (step >> 7) + (sameAs2 ? 128 : -128) + (a2 * 32512 >> 15);
      a2 = Math.min(Math.max(second, -12288), 12288);
      int first = saturate((sameAs1 ? 192 : -192) + (a1 * 32640 >> 15));
      int limit = saturate(15360 - a2);
      a1 = Math.min(Math.max(first, -limit), limit);
    }

    /** Block UPZERO. */
    private void adaptZeros(int difference) {
      int gain = difference == 0 ? 0 : 128;
      for (int i = 5; i >= 0; i--) {
        boolean same = (difference ^ d[i]) >= 0;
        b[i] = saturate((same ? gain : -gain) + (b[i] * 32640 >> 15));
        d[i] = i > 0 ? d[i - 1] : difference;
      }
    }
  }

  private final Band lower = new Band(32, 18432, 8);
  private final Band higher = new Band(8, 22528, 10);
  private final int[] even = new int[12];
  private final int[] odd = new int[12];

  /** Decodes a payload into two samples for each byte. */
  short[] decode(byte[] coded, int offset, int length) {
    short[] samples = new short[2 * length];
    for (int i = 0; i < length; i++) {
      int code = coded[offset + i] & 255;
      int low = lowBand(code & 63);
      int high = highBand(code >> 6);
      join(low, high, samples, 2 * i);
    }
    return samples;
  }

  private int lowBand(int code) {
    int word = code >> 2;
    int reconstructed = clip(lower.s + (lower.det * QM6[code] >> 15));
    int difference = lower.det * QM4[word] >> 15;
    lower.scale(WL[word]);
    lower.adapt(difference);
    return reconstructed;
  }

  private int highBand(int code) {
    int difference = higher.det * QM2[code] >> 15;
    int reconstructed = clip(difference + higher.s);
    higher.scale(WH[code]);
    higher.adapt(difference);
    return reconstructed;
  }

  private void join(int low, int high, short[] samples, int at) {
    System.arraycopy(even, 0, even, 1, 11);
    System.arraycopy(odd, 0, odd, 1, 11);
    even[0] = low - high;
    odd[0] = low + high;
    int first = 0;
    int second = 0;
    for (int i = 0; i < 12; i++) {
      first += even[i] * QMF[i];
      second += odd[i] * QMF[11 - i];
    }
    samples[at] = (short) saturate(first >> 11);
    samples[at + 1] = (short) saturate(second >> 11);
  }

  /** Block LIMIT. */
  private static int clip(int value) {
    return Math.min(Math.max(value, -16384), 16383);
  }

  private static int saturate(int value) {
    return Math.min(Math.max(value, Short.MIN_VALUE), Short.MAX_VALUE);
  }
}
