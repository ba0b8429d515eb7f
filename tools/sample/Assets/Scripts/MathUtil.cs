// Small numeric helpers shared by the gameplay scripts.
using System;

namespace Sample.Scripts
{
    public static class MathUtil
    {
        public static int Clamp(int value, int min, int max)
        {
            if (value < min)
                return min;
            return value > max ? max : value;
        }

        public static float Lerp(float from, float to, float t)
        {
            return from + (to - from) * t;
        }
    }
}
