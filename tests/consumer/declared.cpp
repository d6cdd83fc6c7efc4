// Links against every function that the installed headers declare (declared.s lists their
// addresses).
extern "C" const void* const declared_functions;

int main()
{
    return declared_functions ? 0 : 1;
}
