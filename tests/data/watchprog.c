/* A program whose static data exercises the watch-expression engine:
 * every base type, typedefs, pointers into the data, nested structs,
 * bit-fields, unions, anonymous members, arrays of one and more dimensions,
 * arrays of structs, enums, and a function with parameters and locals.
 * It is compiled, never run: its values are read from the ELF image. The
 * values are chosen so that neighbouring bytes are never zero and signed
 * values are negative, which shows lost sign extensions and bytes read from
 * the wrong place. */

typedef unsigned char u8;
typedef unsigned short u16;
typedef unsigned int u32;
typedef u32 reg32;

enum colour { RED, GREEN = 5, BLUE, NEGATIVE = -3 };
typedef enum { MODE_IDLE = 1, MODE_RUN = 2, MODE_SLEEP = 4 } mode_t_;

struct point {
    short x;
    short y;
};

struct line {
    struct point from;
    struct point to;
    const char *label;
};

struct flags {
    unsigned int ready : 1;
    unsigned int mode : 3;
    signed int delta : 5;
    unsigned int wide : 12;
    unsigned char tail;
    unsigned int spill : 20;
};

union word {
    unsigned int whole;
    unsigned short halves[2];
    unsigned char bytes[4];
};

struct packet {
    u8 kind;
    union {
        u16 code;
        u8 raw[2];
    };
    struct {
        u8 hi;
        u8 lo;
    } pair;
    int values[3];
    struct point *where;
};

struct node {
    int value;
    struct node *next;
};

char c_char = 'A';
signed char c_schar = -5;
unsigned char c_uchar = 200;
short c_short = -1234;
unsigned short c_ushort = 54321;
int c_int = -123456;
unsigned int c_uint = 4000000000u;
long c_long = -7654321L;
unsigned long c_ulong = 3000000000ul;
long long c_llong = -1234567890123LL;
unsigned long long c_ullong = 0xF123456789ABCDEFull;
float c_float = 1.5f;
double c_double = -2.25;
_Bool c_bool = 1;

u8 t_u8 = 0x7F;
u16 t_u16 = 0xBEEF;
reg32 t_reg = 0xDEADBEEF;

enum colour e_colour = BLUE;
enum colour e_negative = NEGATIVE;
mode_t_ e_mode = MODE_RUN;

struct point origin = {-1, 2};
struct point points[4] = {{1, -1}, {2, -2}, {3, -3}, {4, -4}};
struct line diagonal = {{10, 20}, {-30, 40}, "diag"};
struct flags status = {1, 5, -7, 0xABC, 0x5A, 0xFEDCB};
union word w = {0x11223344u};
struct packet pkt = {3, {0x1234}, {0x56, 0x78}, {-1, 100, 7}, &points[2]};
int matrix[2][3] = {{1, 2, 3}, {-4, -5, -6}};
char text[8] = "watch";
const char *greeting = "hello";
int *p_int = &c_int;
struct point *p_point = &points[1];
int **pp_int = &p_int;
void *opaque = &w;
struct node nodes[3] = {{7, &nodes[1]}, {8, &nodes[2]}, {9, 0}};
struct node *list = &nodes[0];
volatile unsigned int v_counter = 0x1020;
const int k_limit = 99;
unsigned char zeroed[16];
static int file_static = 42;
int (*handler)(int, int);

int combine(int a, int b)
{
    int sum = a + b;
    struct point local = {(short)a, (short)b};
    short origin = (short)(a - b); /* hides the global of that name */
    static int calls = 11;
    calls++;
    {
        int inner = sum * 2;
        sum += inner;
    }
    return sum * local.x + calls + file_static + origin;
}

void start(void)
{
    handler = combine;
    v_counter = (unsigned)handler(c_int, zeroed[3]);
    for (;;) {
    }
}

int main(void)
{
    start();
    return 0;
}
