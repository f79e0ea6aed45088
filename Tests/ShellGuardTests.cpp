#include "Support/GuardFixture.hpp"

#include "Shell/Effects.hpp"
#include "Shell/Guard.hpp"
#include "Shell/ProtectedFolders.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>

using namespace tidewrack::shell;
using namespace std::chrono_literals;

namespace {

Context plainContext() {
    Context context;
    context.cwd = "/nowhere/p";
    context.home = "/nowhere/home";
    context.env = {{"HOME", "/nowhere/home"}, {"DIR", "/nowhere/d"}};
    context.projectRoots = {"/nowhere/p", "/nowhere/q/one", "/nowhere/q/two"};
    return context;
}

// For plainContext().
std::string judged(std::string_view command) {
    return judged(command, plainContext(), "/nowhere/");
}

template <std::size_t size>
void expectAll(const Row (&rows)[size]) {
    for (const Row& row : rows) EXPECT_EQ(judged(row.command), row.expected) << row.command;
}

} // namespace

TEST(ShellGuard, findsWhatEachCommandDestroys) {
    expectAll({
        {"ls -la && cat a | grep b; git log --oneline | head -5; [ -f x ] && echo \"a b\" 2>&1 >/dev/null", ""},
        {"rm a b/c ../x -f /y/./z/", "p/a p/b/c x /y/z"},
        {"rm -- -a", "p/-a"},
        {"unlink a; shred b; srm c; trash d", "p/a p/b p/c p/d"},
        {"rm '' $NOPE \"$NOPE\"; mv a; \"X\"=1 rm a; X\\=1 rm b", " ~p"},
        {"mv a b c", "p/a p/b p/c"},
        {"cp a b c; ln -s x y; install m n; ditto s t", "p/c p/n p/t p/y"},
        {"cp a b", "p/b"},
        {"rsync -a s d; rsync -a --delete-after s /e", "/e p/d"},
        {"truncate -s 0 a; echo x | tee -a b", "p/a p/b"},
        {"dd if=a of=b/c", "p/b/c"},
        {"sed -i '' s/a/b/ f", "p/f p/s/a/b"},
        {"sed --in-place x f; perl -pi -e y g; gsed -Ei z h", "p/f p/g p/h p/x p/z"},
        {"sed -n x f; sed -e i f; chmod 755 d; chown me d; find . -name x; perl -ne 'print if /x/' f", ""},
        {"perl x.pl", " ~p"},
        {"chmod -R 755 d", "p/-R p/755 p/d"},
        {"echo a > b >> c 2>d &> e >| g >/dev/null", "p/b p/c p/d p/e p/g"},
        {"> f; X=1 >g", "p/f p/g"},
        {"rm /dev/null /dev/shm/a", "/dev/shm/a"},
        {"F=$(x); echo > $F; while read -r f; do cat a > \"$f\"; done; cd b; echo > \"${1%.c}.o\"", " ?p p/b"},
        {"(x && cd a; rm b); (cd c || cd d; rm -f e); (cd f && rm g); (if x; then cd h; fi; cd i; rm j)",
         "p/a/b p/c/d/e p/f/g p/h/i/j ?p p/c p/d p/h/i p/i ~p"},
        {"(x && cd a); rm b; $(x && cd c); rm d; x && cd e; cd /f; rm g", "/f/g p/b p/d ?/f p ~p"},
        {"rsync --remove-source-files a b c; vim -es d; zip -m e f", "p/a p/b p/c"},
        {"trap 'rm $T' EXIT; T=f; (trap 'rm $T' INT; T=g); sh -c 'trap \"rm \\$T\" 0; T=h'; T=i", "p/f p/g p/h p/i"},
        {"/bin/rm a; \\rm b; \"rm\" c", "p/a p/b p/c"},
        // Wrappers, assignments and keywords
        {"X=1 sudo -E env -i Y='2 3' nohup time rm a", "p/a"},
        {"command -p rm a", "p/a"},
        {"$SUDO rm a", "p/a"},
        {"if true; then rm a; else rm b; fi", "p/a p/b"},
        {"while ! rm a; do { rm b; }; done", "p/a p/b"},
        {"f() { rm a; }; f", "p/a"},
        {"function f { rm a; }; f; coproc rm b; function g", "p/a p/b"},
        {"case $x in a) rm a;; esac", "p/a"},
        {"cat <<'EOF' > f\nIt's prose\nEOF\nrm a", "p/a p/f"},
        {"make && \\\n  rm -r a", "p/a ?p"},
        {"ls\r\nrm a\r\n", "p/a\r"},
        // Nothing is done here
        {"for f in a.c b.c; do echo \"${f%.c}\"; done; rm $f", "p/a.c p/b.c"},
        {"ls | while read -r f; do echo \"$f\" | sort; done", ""},
        {": ${X:=/x}; rm -rf $X", "/x"},
        {"if ls; then ! printf x >f; fi", "p/f"},
        // What cannot be known
        {"bash script.sh", " ?p"},
        {"/usr/bin/python3 x.py", " ?p"},
        {". ./env; eval x; npm test", " ?p"},
        {"echo `x`; cd sub", " ?p p/sub"},
        {"echo $(x) > f", "p/f ?p"},
        {"find . | xargs -0 -n 1 rm", "p ask ?p"},
        {"find . | xargs -I {} sudo rm {}", "p ask ?p"},
        {"find . | xargs sh -c 'rm \"$@\"'", "p ask ?p"},
        {"find . | xargs grep rm; ls | xargs -d, sed -n p", ""},
        {"find . | xargs -0 gzip; (cd a; ls | xargs -I{} nobody {})", " ~p p/a"},
        {"ls | xargs git -C x blame; ls | xargs find -name", ""},
        {"ls | xargs chmod +x; (cd a; find b -type f -exec chmod 600 {} +)", " ~p p/a/b"},
        {"(cd a; ls | xargs git checkout --); (cd b; ls | xargs chmod -R u+w); (cd c; ls | xargs find -delete)",
         "p/c ?p/a p/b p/c"},
        {"(cd a; ls | xargs -0I {} rm {}); (cd b; ls | xargs -rn 1 sed -i x)", "p/a p/b ?p/a p/b"},
        {"(cd a; ls | xargs --max-args 1 rm); (cd b; ls | xargs --delimiter '\\n' -P2 truncate)", "p/a p/b ?p/a p/b"},
        {"ls -A | xargs rm -rf; ls ../q/one | xargs rm -rf", "p ask ?p"},
        {"ls | grep x | xargs rm -rf; (cd a; ls | xargs rm -rf)", "p/a ?p p/a"},
        {"find ../q -maxdepth 1 | xargs -d '\\n' rm -rf", "q ask ?p"},
        {"find ../q -name '*.o' | xargs rm; ls ~/x | xargs -I{} rm ~/x/{}; fd -e c . /y | xargs rm",
         "home/x q /y ?home/x p"},
        {"perl6 x; fish -c y", " ?p"},
        // find's actions and tests
        {"find a b -name x -delete", "p/a p/b"},
        {"find -delete", "p ask"},
        {"find ../q -exec rm {} \\;", "q ask"},
        {"find ../q -mtime +3 -execdir rm {} +", "q"},
        {"find ~ / ../q -exec sh -c 'ls -ld \"$1\" {}; x=$(cat \"$1\") && echo \"$x\" >/dev/null' _ {} \\;", ""},
        {"find . -exec unheard {} +; find .. -exec prettier -w {} \\;; find a -exec bash x {} +",
         " ~/nowhere p p/a q/one q/two"},
        {"find . -exec sed -i s/a/b/ {} +; find b -exec sh -c 'sort $0 > {}.new' {} \\;", "p p/b p/{}.new"},
        {"find a -exec sh -c 'for f; do rm -f \"$f\"; done' _ {} +", "p/a ?p"},
        {"find ../q -exec sh -c 'rm -rf \"$1\"' _ {} \\;", "q ask ?p"},
        {"find a -exec sh -c 'rm -rf ~/Documents' \\;; find b -exec rm -rf ~/Music {} +",
         "home/Documents home/Music p/a p/b deny ?p"},
        {"find a -exec cp {} b \\;; find c -name x -exec mv -t ../d {} +", "p/b p/c ?d p ~p/a"},
        {"find a \\( -type f \\) -delete", "p/a"},
        {"find . -xtype l -delete; find . -newermt 2020-01-01 -type f -delete; find . -user me | xargs rm", "p ?p"},
        {"find . -maxdepth 1 -type f -exec mv {} a/ \\;", "p p/a ?p"},
        {"find . -maxdepth 1 -type f -exec rm {} +; find . -maxdepth 1 -type f | xargs rm", "p ?p"},
        {"find ~ -maxdepth 1 -type f -delete", "home deny"},
        {"find . -maxdepth 1 ! -name . -exec rm -rf {} \\;", "p ask"},
        {"find ../q -not -path ../q -delete", "q ask"},
        {"find . ! -name '*.c' -delete; fd -e o . -x rm; fd -H -d1 -x rm; fd -t l . -x rm -rf; fd -1 . -x rm", "p"},
        {"fd -H -d1 . -x rm -rf", "p ask"},
        {"fd -t f -x rm", "p ask"},
        {"fd -uu . ../q --max-depth=1 | xargs rm -rf", "q ask ?p"},
        {"find . -type f,d -delete", "p ask"},
        {"find . -mindepth 1 -exec mv {} ../x \\;", "p x ask ?p"},
        {"find ~ -user me -delete; find / -newermt 1970-01-01 -delete; find ~ -xtype l -delete", "/ home deny ~home"},
        {"find -L ~ -delete; find -H -D tree -O3 /usr -exec rm {} +", "home /usr deny"},
        // git's subcommands
        {"git; git status; git add .; git commit -m x; git push; git checkout a; git switch a", ""},
        {"git stash pop; (cd a; git frobnicate); git -C /b cherry-pick x; git worktree list", " ~/b p p/a"},
        {"git checkout -- a ../b", "b p/a"},
        {"git -C /a checkout HEAD --; git -C /b checkout -f x; git -C /c restore .; git -C /d switch --force x",
         "/a /b /c /d"},
        {"git restore a", " ?p"},
        {"git switch --discard-changes x", " ?p"},
        {"git -C /a reset --hard HEAD~1; git -C /b clean -fdx; git -C /c stash; git -C /d stash -u", "/a /b /c /d"},
        {"git restore --staged a; git reset --soft HEAD~1; git reset a; git clean -n; git stash list push", ""},
        {"git -C ../r -c a.b=c clean -d --force", "r"},
        {"git --no-pager rm a", "p"},
        {"git -C /s pull", "/s"},
        {"git -C /s merge x; git -C /t rebase y; git -C /u apply z; git -C /v am; git -C /w revert q; git -C /x mv a b",
         "/s /t /u /v /w /x"},
        {"echo x > .git/config", "p/.git/config ask"},
        {"rm -rf .git; git clone x t && rm -rf t/.git; cp -r t/.git /x; rm .git/index.lock",
         "p/.git p/.git/index.lock p/t/.git /x"},
        {"echo x >> .git/info/exclude; echo x >> ../q/.git/a", "p/.git/info/exclude q/.git/a"},
        {"echo x >> .git/a; mv b .git/a", "p/.git/a p/b ask"},
        {"mv ../x t; rm -rf t/.git", "p/t p/t/.git x ask"},
        {"make; rm -rf t/.git", "p/t/.git ask ?p"},
        {"rm -rf .GIT; echo x > ../q/.Git/HEAD", "p/.GIT q/.Git/HEAD ask"},
        {"rm .gitignore .gitx/.git-y a.git/.g", "p/.gitignore p/.gitx/.git-y p/a.git/.g"},
    });
    EXPECT_EQ(
        analyze("echo x > .git/config", plainContext()).verdict.reason,
        "This changes /nowhere/p/.git/config. Tidewrack doesn't keep git's own history, so it can't undo this. Allow?");
}

TEST(ShellGuard, followsVariablesListsAndFolders) {
    expectAll({
        {"D=\"/x y\"; rm -rf \"$D\"", "/x y"},
        {"T=/tmp/tidewrack-none; rm -rf ${T:?}", "/tmp/tidewrack-none"},
        {"export A=/a B=$DIR; rm $A $B ${C:-/c}", "/a /c d"},
        {"declare -r A=~/a; rm $A", "home/a"},
        {"A=\"~/a\"; rm $A", "p/~/a"},
        {"rm '$DIR' \\$DIR", "p/$DIR"},
        {"for f in a \"$DIR\" 'c d'; do rm \"$f/x\"; done", "d/x p/a/x p/c d/x"},
        {"for f in a b; do for g in c d; do mv $f/$g $g; done; done", "p/a/c p/a/d p/b/c p/b/d p/c p/d"},
        {"for f in a b; do ln -sf \"$PWD/$f\" ~/.$f; cp $f $f.old; done", "home/.a home/.b p/a.old p/b.old"},
        {"for d in Music x; do rsync -a --delete b/ ~/$d/; done", "home/Music home/x deny"},
        {"for r in a b; do git -C \"$r\" reset --hard; done", "p/a p/b"},
        {"for c in echo rm; do for f in a b; do $c $f; done; done", "p/a p/b"},
        {"for d in a b; do cd $d; git reset --hard; (cd c; rm e); > f; cd ..; done; rm g",
         "p/a p/a/c/e p/a/f p/b p/b/c/e p/b/f p/g"},
        {"for d in a /b; do (cd $d && ls); done; rm x", "p/x"},
        {"cd /a || cd b && rm c; pushd -n /d; popd; rm e", "/a/b/c /d/e ?/a /a/b /d p p/b"},
        {"pushd /a; pushd /b; cd ~1; rm x; popd +1; rm y", "/a/y /b/x ?/a /b p"},
        {"for f in *.x; do rm -f \"q/$f\"; done", " ~p/q"},
        {"ls | while read -r f; do rm -rf \"$f\"/*; done", " ?p"},
        {"b=${!DIR}; rm -rf \"$b\"/*", " ?p"},
        {"b=${DIR%/}; rm -rf \"$b\"/*; c=${b##*/}; rm /x/$c.${c^^}", "d /x/d.D"},
        {"f=/x/a.c; rm \"$(dirname \"$f\")/$(basename $f .c).o\"; cd $(dirname $f) && rm \"$(basename -- $f)\" b",
         "/x/a.o /x/b ?/x"},
        {"for f in a/x b/y; do rm \"$(dirname $f)/z\"; done; d=$(cd ../q && pwd); rm $d/x", "p/a/z p/b/z q/x"},
        {"a=(a b); a+=(c); rm \"${a[@]/#//x/}\"; s=/y; s+=/z; rm $s; t+=(d); rm $t", "p/d /x/a /x/b /x/c /y/z"},
        {"a=(/x/b /x/c); rm \"${a[@]:0:1}\" ${a[*]:1}", " ?p"},
        {"mkdir -p /x/y && cd $_ && rm z; (test -f a && rm \"$_\"); ls $(u) && rm $_", "/x/y/a /x/y/z ?p /x/y"},
        {"declare -n r=o; o=/x; rm $r/y; rm -rf /x/${!o} /z/$(u)/y", " ?p /x /z"},
        {"rm -rf ~/${NOPE#v}", "home deny"},
        {"rm -rf \"$HOME/${NOPE%/}\"; V=${NOPE%x}; rm -rf a/$V", "home p/a deny"},
        {"for f in $NOPE; do rm -rf ~/${f%.c}; done; rm a${NOPE%x}", "p/a ?p"},
        // Unknown words keep their places
        {"mv ~/Documents \"${!DIR}\"; read -r d; mv ~/.ssh \"$d\"", "home/.ssh home/Documents deny ?p"},
        {"rsync -a --delete \"${!DIR}/\" ~/Music; ln -sf \"${!DIR}/a\" ~/.a", "home/.a home/Music deny ?p"},
        {"read -r d; find \"$d\" -type f -delete; git -C \"$d\" stash list", " ?p"},
        {"for f in \"${!DIR}\" a; do rm -rf \"$f\"; done; ${DIR:+sudo} rm -rf ~", "home p/a deny ?p"},
        {"git ${DIR:+-P} -C \"${!DIR}\" reset --hard", "p ?p"},
        {"rm -rf $PWD/a; cd b; rm -rf $PWD/c", "p/a p/b/c"},
        // Brace lists
        {"rm -rf ~/{x,Documents}", "home/Documents home/x deny"},
        {"rm -rf /{,usr}", "/ /usr deny"},
        {"rm -rf \"$DIR\"/{a,'b c',{d,e}f}.x", "d/a.x d/b c.x d/df.x d/ef.x"},
        {"rm {~/a,$DIR/b,#c}", "d/b home/a p/#c"},
        {"mv a{,.bak}; touch x{1,2}", "p/a p/a.bak"},
        {"rm {a,b}{c,d} {e..g} {9..11} {01..-1}", "p/00 p/01 p/10 p/11 p/9 p/ac p/ad p/bc p/bd p/e p/f p/g"},
        {"rm {a} {} '{a,b}' \\{c,d\\} {e\\,f} ${DIR:-a,b}", "d p/{a,b} p/{a} p/{c,d} p/{e,f} p/{}"},
        {"rm {{a},b} {c,d x{,e", "p/b p/x{,e p/{a} p/{c,d"},
        {"for d in {a,b}; do { rm $d/{1,2}; }; done", "p/a/1 p/a/2 p/b/1 p/b/2"},
        {"X={a,b}; rm -f $X", "p/{a,b}"},
        {"rm {1..1001} a", "p/a p/{1..1001} ?p"},
        // Unquoted variables, apart and whole
        {"L='a b'; rm $L", "p/a p/a b p/b"},
        {"L='a b'; rm \"$L\" x$L\"\"", "p/a b p/xa b"},
        {"L=\"x /usr\"; rm -rf $L", "p/x p/x /usr /usr deny"},
        {"L='a b'; cp x $L; mv $L c", "p/a p/a b p/b p/c"},
        {"C='sudo rm -rf'; $C a", "p/a"},
        {"IFS=:; L=~/a:~/b:c; rm $L", "home/a home/a:/nowhere/home/b:c home/b p/c"},
        {"L='a b'; for f in $L c; do rm $f; done", "p/a p/a b p/b p/c"},
        {"L='q/*.x'; rm $L", "p/q/*.x ~p/q"},
        {"L='a b'; M=$L; cd $L && rm \"$M\"", "p/a b/a b"},
        // Changes of folder
        {"pushd ../x; rm f; popd; rm g", "p/g x/f"},
        {"pushd a; pushd b; popd; popd; rm x; pushd ~/c; pushd; pushd; rm y", "home/c/y p/x"},
        {"cd a; cd -; rm f", "p/f"},
        {"cd a; rm $OLDPWD/f", "p/f"},
        {"cd; rm f", "home/f"},
        {"cd -- ~/a && rm f", "home/a/f"},
        {"(cd a; (cd b; rm x); rm y); rm z", "p/a/b/x p/a/y p/z"},
        {"(cd a) (rm x)", "p/x"},
        {"(cd ~ && case $y in a|b) rm -rf Documents;; (ls) rm x; esac); rm y", "home/Documents home/x p/y deny"},
        {"(cd a; if ls; then case c in d) (cd e);; esac; fi; grep case f); rm y", "p/y"},
        {"cd $NOPE && rm -rf *", "p ask ?p"},
        {"cd a && make; cd /b; ls", " ?/b p/a"},
        {"cd a; $(b); cd /c; rm x", "/c/x ?/c p/a"},
    });
}

TEST(ShellGuard, knowsTheUsersOwnHomeByName) {
    Context context = plainContext();
    context.env["USER"] = "bob";
    EXPECT_EQ(judged("rm -rf ~bob", context, "/nowhere/"), "home deny");
    EXPECT_EQ(judged("rm ~bob/a ~bobby/b '~bob/c'", context, "/nowhere/"), "home/a p/~bob/c p/~bobby/b");
    EXPECT_EQ(judged("rm ~bob/a"), "p/~bob/a");
}

TEST(ShellGuard, asksBeforeAProjectGoes) {
    expectAll({
        {"rm -rf ../q", "q ask"},
        {"rm -r ../q/one", "q/one ask"},
        {"rm -f --recursive ../q/", "q ask"},
        {"rm ../q", "q"},
        {"rm --rec ../q", "q ask"},
        {"find ../q -delete -name '*.o'; find ../q -name x -prune -o -delete", "q ask"},
        {"find ../q -print -name x | xargs rm", "q ask ?p"},
        {"find ../q -name x -delete -o -type f -size 0 -exec rm {} +; find ../q -name x | xargs rm", "q ?p"},
        {"rm -f -- ../q -r", "p/-r q"},
        {"rmdir ../q", "q ask"},
        {"rm -rf ../q/one/src", "q/one/src"},
        {"rm -rf ../q/on", "q/on"},
        {"mv ../q ../r", "q r ask"},
        {"rm -rf ../q/one/*/*", "q/one/* ask"},
        {"rsync -a --delete x/ ../q/one", "q/one ask"},
        {"rsync -a --delete x ../q/one; rsync -a --delete --exclude=.git x/ ../q/one", "q/one"},
    });
    EXPECT_EQ(analyze("rm -rf ../q .", plainContext()).verdict.reason,
              "This deletes /nowhere/q, which contains the tracked project /nowhere/q/one. Tidewrack snapshotted it "
              "first; allow?");
    EXPECT_EQ(analyze("mv ../q/one ../r", plainContext()).verdict.reason,
              "This moves /nowhere/q/one, which contains the tracked project /nowhere/q/one. Tidewrack snapshotted it "
              "first; allow?");
    Verdict verdict{Verdict::Kind::ask, "first"};
    verdict.raiseTo({Verdict::Kind::ask, "second"});
    EXPECT_EQ(verdict.reason, "first");
}

TEST(ShellGuard, refusesCatastrophes) {
    expectAll({
        {"rm -rf /", "/ deny"},
        {"rm -rf ~", "home deny"},
        {"rm -rf $HOME/", "home deny"},
        {"rm -rf \"${HOME}\"/Documents/", "home/Documents deny"},
        {"rm -rf ~/.ssh/../.aws", "home/.aws deny"},
        {"rm -rf ~/Documents/x", "home/Documents/x"},
        {"rm -rf .. && rm -rf ../q; echo > /etc", "/etc /nowhere q deny"},
        {"cd /; rm -rf usr", "/usr deny"},
        {"mv ~ /x", "home /x deny"},
        {"cp a /", "/ deny"},
        {"chmod -R 777 /var", "p/-R p/777 /var deny"},
        {"for d in Desktop Music; do sudo rm -rf ~/\"$d\"; done", "home/Desktop home/Music deny"},
        {"f() { rm() { :; }; }; (rm() { :; }); rm -rf ~/Desktop", "home/Desktop deny"},
        {"rm() { :; }; sudo rm -rf ~/Desktop", "home/Desktop deny"},
        {"alias rm=echo; rm -rf ~/Desktop", "home/Desktop deny"},
        {"alias rm=echo; rm a", "p/a"},
        {"find ~ -delete -name x", "home deny"},
        {"find ~ -name x -o -name y -exec rm {} + -o -exec rm -rf {} +", "home deny"},
        {"find ~ -maxdepth 1 -iname 'desk*' -exec rm -rf {} +", "home/Desktop deny ~home"},
        {"find ~/.. -name Music -print0 | xargs -0 rm -rf", "home/Music deny ?p ~/nowhere p q/one q/two"},
        {"find ~ -type f -name 'D*' -exec rm -rf {} +; find ~ -name '.config' -delete", " ~home"},
        {"su - x -c 'rm -rf ~/Desktop'", "home/Desktop deny"},
        {"watch -n1 'rm -rf ~/Desktop'", "home/Desktop deny"},
        {"tmux -L s new-session -ds x 'rm -rf ~/Desktop'; tmux new -d rm -r ~/Music", "home/Desktop home/Music deny"},
        {"tmux send-keys -t x 'rm -rf ~/Desktop' Enter", "home/Desktop deny"},
        {"screen -dmS x rm -rf ~/Desktop; echo 'rm -rf ~/Music' | at now + 1 hour", "home/Desktop home/Music deny"},
        {"fakeroot -- systemd-run -p x --user rm -rf ~/Desktop", "home/Desktop deny"},
        {"fish -c 'rm -rf ~/Desktop'", "home/Desktop deny ?p"},
        {"rm$IFS-f${IFS}../q", "q"},
        {"ln -s ~ l; rm -rf l/Desktop", "home/Desktop p/l p/l/Desktop deny"},
        {"rm -rf .git /tmp", "p/.git /tmp deny"},
        {"rm -rf ~/..; rm -rf ../../now", "/now /nowhere deny"},
        {"git init; git -C ~/.. pull; cd ~/..; git stash; git checkout .", "/nowhere"},
        {"git --work-tree=$HOME/.. --git-dir=x clean -fd", "/nowhere deny"},
        {"git init; git -C ~/.. clean -fd", "/nowhere deny"},
        {"cd /Users; git reset --hard; git -C ~/.. clean -fd; git -C ~ checkout .", ""}, // where git finds nothing
    });
    EXPECT_EQ(catastrophic("/Users/x/", "/Users/x"),
              "Tidewrack blocked this: it would delete or overwrite /Users/x. If you really mean it, run it yourself.");
    for (const char* path : {"/", "/Library", "/private/var", "/h/Desktop", "/h/.gnupg"})
        EXPECT_TRUE(catastrophic(path, "/h/")) << path;
    for (const char* path : {"", "/home", "/usr/local", "/h/.zshrc", "/hDesktop", "/h/Desktop/a", "Desktop"})
        EXPECT_FALSE(catastrophic(path, "/h")) << path;
    for (const char* path : {"/home", "/home/", "/home/users"})
        EXPECT_TRUE(catastrophic(path, "/home/users/u")) << path;
    for (const char* path : {"/hom", "/home/user", "/home/users/v"})
        EXPECT_FALSE(catastrophic(path, "/home/users/u")) << path;
    // A project that holds the home folder is snapshotted, and its loss asked about.
    EXPECT_TRUE(ProtectedFolders("/w/p/.home", std::vector<std::string>{"/w/p/q"}).holdsText("/w/p"));
    EXPECT_FALSE(ProtectedFolders("/w/p/.home", std::vector<std::string>{"/w/p"}).holdsText("/w/p"));
    EXPECT_TRUE(ProtectedFolders("/w/p/.home", std::vector<std::string>{"/w/p"}).holdsText("/w"));
    EXPECT_FALSE(catastrophic("", ""));
    EXPECT_FALSE(catastrophic("/Desktop", ""));
    EXPECT_TRUE(catastrophic("/Desktop", "/"));
}

// What one command of a line moves or adds to is whole afterwards, unless another one takes it.
TEST_F(ShellGuardOnDisk, tellsWhatIsWholeAfterwards) {
    const auto isKept = [&](std::string_view command) {
        const Decision decision = analyze(command, context);
        return std::count(decision.keptWhole.begin(), decision.keptWhole.end(), context.cwd + "/f") > 0;
    };
    folder.write("tree/f", "x");
    folder.write("tree/old", "x");
    std::filesystem::last_write_time(context.cwd + "/old", std::filesystem::file_time_type::clock::now() - 1h);
    for (const char* command : {"echo x >> f", "tee -a f", "chmod -R 700 f", "mv f g", "truncate -s +1 f",
                                "truncate --size=1 f", "truncate -s1KB f", "dd of=f conv=sync,notrunc oflag=append"})
        EXPECT_TRUE(isKept(command)) << command;
    for (const char* command :
         {"dd of=f conv=notrunc", "tee f -- -a", "truncate -s +1 -s 0 f", "truncate -s +0 -r x f"})
        EXPECT_FALSE(isKept(command)) << command;
    EXPECT_EQ(judgedHere("touch old; cp -u old f; cp -S.n a.txt b.txt"), "tree/b.txt tree/f");
    EXPECT_EQ(judgedHere("cp -n old f; cp -au old f; mv -n old f; cp -u old f sub"),
              "tree/old tree/sub/f tree/sub/old");
    EXPECT_EQ(judgedHere("cp -u f old"), "tree/old");
    for (const char* command : {"tee f", "echo x >> f; rm f", "rm f; mv f g", "tee -a f; echo > f", "truncate -s 0 f",
                                "truncate -s -1 f", "dd of=f conv=sync"})
        EXPECT_FALSE(isKept(command)) << command;
}

TEST_F(ShellGuardOnDisk, asksBeforeItsOwnHistoryOrHooksGo) {
    for (const char* name : {"home/.local/store/projects", "home/.agent", "dotfiles"}) folder.makeFolder(name);
    folder.write("dotfiles/settings.json", "{}");
    folder.link("home/.agent/settings.json", root + "/dotfiles/settings.json");
    folder.link("local", root + "/home/.local");
    int asked = 0;
    context.protectedPaths = [&] {
        ++asked;
        return std::vector<OwnPath>{{root + "/home/.local/store", OwnPath::Role::history},
                                    {root + "/dotfiles/settings.json", OwnPath::Role::hooks}};
    };
    const auto asks = [&](std::string_view command) {
        const Verdict verdict = analyze(command, context).verdict;
        return verdict.kind == Verdict::Kind::ask && verdict.reason.find("Tidewrack's") != std::string::npos;
    };
    std::istringstream rows(tidewrack::testing::testData("own-commands.txt"));
    for (std::string command; std::getline(rows, command);) EXPECT_TRUE(asks(command)) << command;
    for (const char* command :
         {"tidewrack log; tidewrack snap; tidewrack restore 1; tidewrack undo 2; tidewrack mcp --write; tidewrack "
          "vault restore 1",
          "tidewrack prune --dry-run; tidewrack untrack --help; tidewrack hooks install; tidewrack --label prune snap; "
          "tidewrack browse --help",
          "cat ~/.local/store/projects/1.json; cp -r ~/.local/store /nowhere/copy", "rm -rf ../local",
          "rm ~/.agent/other.json; touch ~/.local/x; rm -rf ~/.local/storage", "echo tidewrack untrack",
          "git -C ../dotfiles pull", "find ~ -name '*.o' -delete; find ~ -maxdepth 2 -name '*.json' -delete",
          "npx -y tidewrack@1 log; yarn dlx tidewrack timeline; bunx tidewrack undo --dry-run; yarn why tidewrack; npx "
          "-p "
          "tidewrack tsc; npm install tidewrack; yarn add tidewrack; deno run x.ts tidewrack untrack; npx rimraf dist",
          "claude plugin list; claude plugin install tidewrack@tidewrack; gemini extensions uninstall other; claude -p "
          "'remove the plugin tidewrack'",
          "find ~ -name '*.o' | xargs rm; fd -e o . ~ -x rm; fd -H node_modules ~ -x rm -rf; fd -td -d1 "
          "STORE ~ -x rm -rf; fd -H '^cache' ~ -x rm -r; fd -H -e o . .. -X rm; cd ~; ls *.o | xargs rm -rf",
          "chmod 600 ~/.agent/settings.json; chmod u+rw,go= ../dotfiles/settings.json",
          "find ~ -type d -empty -delete; find .. ! -name x -path '*/cache/*' -delete", "chmod -R u+w ~/.local"})
        EXPECT_EQ(judgedHere(command).find("ask"), std::string::npos) << command;
    EXPECT_EQ(analyze("rm -rf ~/.local/store ~", context).verdict.kind, Verdict::Kind::deny);
    // Telling the paths takes reading the agents' files.
    asked = 0;
    for (const char* command : {"ls -la; make; python3 x.py", "rm -rf ~", "rm a b c; mv x y"})
        (void)analyze(command, context);
    EXPECT_EQ(asked, 1);
}

TEST_F(ShellGuardOnDisk, matchesPatternsAsAShellDoes) {
    EXPECT_EQ(judgedHere("rm *.txt"), "tree/a.txt tree/b.txt");
    EXPECT_EQ(judgedHere("rm [b-z].txt"), "tree/b.txt");
    EXPECT_EQ(judgedHere("rm ?.txt [!a]*"), "tree/a.txt tree/b.txt tree/sub");
    EXPECT_EQ(judgedHere("rm .h*"), "tree/.hidden");
    EXPECT_EQ(judgedHere("rm */*.txt"), "tree/sub/c.txt");
    EXPECT_EQ(judgedHere("shopt -s extglob; rm -rf !(a.txt|x).txt; rm sub/@(c|d).txt"),
              "tree/a.txt tree/b.txt tree/sub/c.txt");
    EXPECT_EQ(judgedHere("rm -rf !(a.txt); if !(rm x); then case y in +(z)) rm w;; esac; fi"),
              "tree/a.txt tree/b.txt tree/sub tree/w tree/x");
    EXPECT_EQ(judgedHere("shopt -s dotglob; rm *"), "tree/.hidden tree/a.txt tree/b.txt tree/sub");
    EXPECT_EQ(judgedHere("shopt -s nocaseglob; rm A*"), "tree/a.txt");
    EXPECT_EQ(judgedHere("rm sub/*.o"), " ~tree/sub");
    EXPECT_EQ(judgedHere("rm -rf ../*"), root + " home link out tree deny");
    EXPECT_EQ(judgedHere("rm -rf \"$PWD\"/s*"), "tree/sub");
    EXPECT_EQ(judgedHere("for d in *; do rm $d/c.txt; done"), "tree/sub/c.txt");
    for (const char* git : {"pull", "stash -u", "checkout .", "clean -fd"}) {
        EXPECT_EQ(judgedHere("for d in ../*/; do git -C \"$d\" " + std::string(git) + "; done"), "out tree") << git;
        EXPECT_EQ(judgedHere("for d in ~/*/; do (cd \"$d\" && git " + std::string(git) + "); done"), "") << git;
    }
}

TEST_F(ShellGuardOnDisk, handsPatternsOn) {
    EXPECT_EQ(judgedHere("sh -c 'for f in \"$@\"; do : > \"$f\"; done' sh *.txt"), "tree/a.txt tree/b.txt");
    EXPECT_EQ(judgedHere("f() { rm \"$2\" x; }; f *.txt; f *.none"), "tree/b.txt tree/x ?tree ~tree");
}

TEST_F(ShellGuardOnDisk, copiesLandInsideAnExistingFolder) {
    EXPECT_EQ(judgedHere("cp a.txt ../x.txt ../out"), "out/a.txt out/x.txt");
    EXPECT_EQ(judgedHere("cp a.txt ../out/"), "out/a.txt");
    EXPECT_EQ(judgedHere("mkdir ../new; echo > ../new/a; cp ../new/* ../out; cp ../new/. sub"),
              "new/a out/a out/new tree/sub/a tree/sub/new");
    EXPECT_EQ(judgedHere("cp -t ../out a.txt b.txt; mv --target-directory=../out sub; install -m 644 a.txt ../new"),
              "new out/a.txt out/b.txt out/sub tree/sub");
    EXPECT_EQ(judgedHere("cp -t../out a.txt; mv --target=../out b.txt; cp -tnew sub"),
              "out/a.txt out/b.txt tree/b.txt tree/new/sub");
    EXPECT_EQ(judgedHere("rsync -a '-fmerge n' sub/ ../out"), "out/c.txt out/sub");
    EXPECT_EQ(judgedHere("mv *.txt ../out"), "out/a.txt out/b.txt tree/a.txt tree/b.txt");
    EXPECT_EQ(judgedHere("cp a.txt ../new"), "new");
    EXPECT_EQ(judgedHere("cp -r sub/. ../out"), "out/c.txt out/sub");
    EXPECT_EQ(judgedHere("rsync -a sub/ ../out"), "out/c.txt out/sub");
    EXPECT_EQ(judgedHere("cp \"${!HOME}/x\" ../out"), " ?out tree @out");
    EXPECT_EQ(judgedHere("rsync -a --delete sub ../out"), "out out/sub");
    EXPECT_EQ(judgedHere("git checkout a.txt"), " ?tree");
    EXPECT_EQ(judgedHere("git checkout HEAD *.txt"), " ?tree");
    EXPECT_EQ(judgedHere("git checkout main"), "");
}

TEST_F(ShellGuardOnDisk, recognisesAProtectedFolderUnderAnotherSpelling) {
    EXPECT_EQ(judgedHere("rm -rf ../link"), "link");
    EXPECT_EQ(judgedHere("rm -rf ../link/"), "link deny");
    EXPECT_EQ(judgedHere("rm -rf ../link/Documents"), "link/Documents deny");
    EXPECT_EQ(judgedHere("rm -rf ../link/Documents/x"), "link/Documents/x");
    // Without its contents a folder is as good as gone.
    folder.write("home/Documents/a", "x");
    EXPECT_EQ(judgedHere("rm -rf ~/Documents/*"), "home/Documents home/Documents/a deny");
    EXPECT_EQ(judgedHere("cd ../link/Documents && rm -rf *"), "link/Documents link/Documents/a deny");
    EXPECT_EQ(judgedHere("rm -rf ~/*/*"), "home home/Documents/a deny");
    EXPECT_EQ(judgedHere("rm -rf ~/Documents/a* ~/Documents/?"), "home/Documents/a");
    EXPECT_EQ(judgedHere("rm ~/Documents/*; rm -rf /tmp/none/*"), "/tmp/none home/Documents/a");
    EXPECT_EQ(judgedHere("rsync -a --delete sub ../link"), "link link/sub deny");
    EXPECT_EQ(judgedHere("git -C ../link clean -fdx"), "");
    EXPECT_EQ(judgedHere("GIT_DIR=x git -C ../link clean -fdx"), "link deny");
    folder.makeFolder("home/.git");
    EXPECT_EQ(judgedHere("git -C ../link clean -fdx"), "link deny");
    EXPECT_EQ(judgedHere("git -C ~/Documents clean -fdx"), "home/Documents deny");

    EXPECT_EQ(judgedHere("ln -s ../out/x l; rm l/../f; cd ../link; rm -f ../out/y"), "out/f out/y tree/f tree/l");
    folder.link("wlink", root + "/tree");
    folder.link("out/up", root);
    EXPECT_EQ(judgedHere("rm -rf ../wlink"), "wlink");
    EXPECT_EQ(judgedHere("rm -rf ../wlink/"), "wlink ask");
    EXPECT_EQ(judgedHere("rm -rf ../out/up/tree"), "out/up/tree ask");
    EXPECT_EQ(judgedHere("rm -rf ../out/up"), "out/up");
    EXPECT_EQ(judgedHere("rm -rf ../out/up/"), "out/up deny") << "the home folder is in what it leads to";

    folder.link("home/.config", root + "/out");
    EXPECT_EQ(judgedHere("git -C ../out pull"), "out") << "only the link in the home folder is protected";
    EXPECT_EQ(judgedHere("rm -rf ~/.config"), "home/.config deny");

    ProtectedFolders folders(context.home, {});
    EXPECT_TRUE(folders.holdsFolder(root + "/link/.ssh", false));
    EXPECT_FALSE(folders.holdsFolder(root + "/tree", false));

    if (!folder.has("TREE")) GTEST_SKIP() << "this volume minds case";
    EXPECT_EQ(judgedHere("rm -rf ../TREE"), "TREE ask");
    EXPECT_EQ(judgedHere("rm -rf ../home/DOCUMENTS"), "home/DOCUMENTS deny");
}

TEST_F(ShellGuardOnDisk, boundsWhatAPatternMayCost) {
    for (int number = 0; number < 10'001; ++number) folder.write("many/" + std::to_string(number), "");
    EXPECT_EQ(judgedHere("rm ../many/*"), "many");
    EXPECT_EQ(judgedHere("rm ../many/9999*"), "many/9999");

    for (const char* name : {"many/l1", "many/l2"}) folder.link(name, root + "/many");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(judgedHere("rm ../many/*/*/*/*/*/*/*/nope"), "many");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}
