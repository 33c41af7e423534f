// A chained hash table of the template library, keyed here by C strings. Keys are stored as
// pointers (they point to static strings), not copied.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

// Growth of a table: half as large again (at least one more bucket).
inline std::uint32_t vtl_hash_50_percent_increase_size(std::uint32_t size)
{
    return size + size / 2 + 1;
}

struct VTL_CSTR_OPS {
    static std::uint32_t hash(const char* key)
    {
        std::uint32_t h = 0;
        for (const char* c = key; *c; ++c)
            h ^= (h << 5) + (h >> 2) + std::uint32_t(std::int32_t(static_cast<signed char>(*c)));
        return h;
    }
    static bool equal(const char* a, const char* b) { return std::strcmp(a, b) == 0; }
};

template <typename KEY, typename VALUE, typename OPS>
class VTL_HASH {
public:
    struct NODE {
        KEY key;
        VALUE value;
        NODE* next;
        NODE* previous;
    };

    // Where a lookup ended: the node (null when absent) and the bucket it hashed to.
    struct POSITION {
        NODE* node;
        std::uint32_t bucket;
        std::uint32_t bucket_count;
    };

    static constexpr std::uint32_t INITIAL_BUCKET_COUNT = 61;

    VTL_HASH() : m_buckets(INITIAL_BUCKET_COUNT, nullptr) {}
    ~VTL_HASH() { free_nodes(); }
    VTL_HASH(const VTL_HASH&) = delete;
    VTL_HASH& operator=(const VTL_HASH&) = delete;

    POSITION hash_search(KEY key) const
    {
        const std::uint32_t bucket = OPS::hash(key) % m_bucket_count;
        NODE* node = m_buckets[bucket];
        while (node && !OPS::equal(node->key, key))
            node = node->next;
        return POSITION{node, bucket, m_bucket_count};
    }

    const VALUE* find(KEY key) const
    {
        const NODE* node = hash_search(key).node;
        return node ? &node->value : nullptr;
    }

    // Insert-or-get: a new key starts with the value 0.
    VALUE& operator[](KEY key)
    {
        const POSITION position = hash_search(key);
        if (position.node)
            return position.node->value;
        NODE*& head = m_buckets[position.bucket];
        if (head)
            ++m_collision_count;
        NODE* node = new NODE{key, VALUE(0), head, nullptr};
        if (head)
            head->previous = node;
        head = node;
        ++m_element_count;
        resize(m_element_count);
        return node->value;
    }

    // Grows the table once n elements would fill it beyond four fifths.
    void resize(std::uint32_t n)
    {
        const std::uint32_t wanted = (n / 4) * 5;
        if (wanted <= m_bucket_count)
            return;
        rehash(vtl_hash_50_percent_increase_size(wanted));
    }

    std::uint32_t bucket_count() const { return m_bucket_count; }
    std::uint32_t size() const { return m_element_count; }
    std::uint32_t collision_count() const { return m_collision_count; }

private:
    void rehash(std::uint32_t new_bucket_count)
    {
        std::vector<NODE*> old_buckets(new_bucket_count, nullptr);
        old_buckets.swap(m_buckets);
        m_bucket_count = new_bucket_count;
        for (NODE* chain : old_buckets) {
            while (chain) {
                NODE* node = chain;
                chain = chain->next;
                NODE*& head = m_buckets[OPS::hash(node->key) % m_bucket_count];
                if (head) {
                    ++m_collision_count;
                    head->previous = node;
                }
                node->next = head;
                node->previous = nullptr;
                head = node;
            }
        }
        m_collision_count = 0;
    }

    void free_nodes()
    {
        for (NODE* chain : m_buckets) {
            while (chain) {
                NODE* next = chain->next;
                delete chain;
                chain = next;
            }
        }
    }

    std::uint32_t m_bucket_count = INITIAL_BUCKET_COUNT;
    std::uint32_t m_element_count = 0;
    std::vector<NODE*> m_buckets;
    std::uint32_t m_collision_count = 0;
};
