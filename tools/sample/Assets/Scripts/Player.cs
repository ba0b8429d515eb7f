// The player's per-frame update and its spawning.
using System;

namespace Sample.Scripts
{
    public class Player
    {
        public int Health = 100;
        public Inventory Items = new Inventory();

        public void Update(int damage)
        {
            Health = MathUtil.Clamp(Health - damage, 0, 100);
            if (Items.Count() > 10)
                Items.Sort();
        }

        public float Spawn(float from, float to)
        {
            float x = MathUtil.Lerp(from, to, 0.5f);
            return x + Health;
        }
    }
}
