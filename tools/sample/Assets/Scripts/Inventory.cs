// The ids of the items a player carries, kept sorted.
using System.Collections.Generic;

namespace Sample.Scripts
{
    public class Inventory
    {
        private readonly List<int> ids = new List<int>();

        public int Count()
        {
            return ids.Count;
        }

        public void Sort()
        {
            ids.Sort();
            for (int i = 0; i < ids.Count; i++)
                ids[i] = MathUtil.Clamp(ids[i], 0, 9999);
        }
    }
}
