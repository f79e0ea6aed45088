// What the guard reads beyond the commands that it has rules for.

#include "Support/GuardFixture.hpp"

#include "Shell/DeepReading.hpp"

#include <algorithm>
#include <fstream>

using namespace tidewrack::shell;

TEST_F(ShellGuardOnDisk, leavesEverydayCommandsAlone) {
    folder.makeFolder("tree/.git");
    std::ifstream file(
        tidewrack::testing::inCheckout("Tests/Data/everyday-commands.txt")); // with "\\n" for a line feed
    std::size_t count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        for (std::size_t at = line.find("\\n"); at != std::string::npos; at = line.find("\\n", at + 1))
            line.replace(at, 2, "\n");
        EXPECT_EQ(judgedHere(line), "") << line;
    }
    EXPECT_GT(count, 200u);
}

TEST_F(ShellGuardOnDisk, savesWhatAGuessMayTouchOnlyInProjects) {
    context.projectRoots.push_back(root + "/home/p");
    folder.write("home/data/f", "x");
    folder.write("tree/into", "cd ../out\n");
    folder.write("tree/list", "/none\n" + root + "/home/data/f\n");
    folder.write("tree/env",
                 "# of the tests\nB=sub\nif x; then C=~/Documents; fi\nE=../out\nclean() { rm -rf ~; }\nD=$E/d\n");
    const Row rows[] = {
        {"pytest -q", " ~tree"},
        {"pytest -v; (cd sub; ./reset.sh -h); (cd ../out; ./x version)", " ~out tree tree/sub @out"},
        {"node -v; npm help; python3 -V; g++ -v; ./gradlew --version; ~/bin/x --help", ""},
        {"./x --help", " ~tree"},
        {"python3 -v; bash -v", " ?tree"},
        {"cd ../out && unknown --flag", " ~out @out"},
        {"rm -f ~/*.bak", " ~home"},
        {"rm -rf ~/*.bak ../out/x*", " ~home out"},
        {"rm -rf ../out/* ../out/?", "out"},
        {"find ~ -name '*.o' -delete", " ~home home/p"},
        {"find ../out -name '*.o' -delete", "out"},
        {"find . -name '*.o' -exec rm {} +", "tree"},
        {"python3 x.py ../home/data ~/Documents /usr/lib /none ../tree/a.txt", " ?tree @home/data tree/a.txt"},
        {"cat ~/data/f | node x.js $HOME/data/f --out="
         "../home/data/f",
         " ?tree @home/data/f"},
        {"cat list | xargs rm; ls", " ?tree @home/data/f"},
        {"while read -r f; do rm \"$f\"; done < list", " ?tree @home/data/f"},
        {"cat list | xargs ls; python3 x.py", " ?tree @home/data/f"},
        {"cd ../out && make", " ?out @out"},
        {"for f in $(x); do rm ../out/$f; done", " ?out tree @out"},
        {"declare -a d=(../out a.txt); rm -rf \"${d[@]}\"; for f in *.txt; do cp ../out/t \"$f\"; done",
         "out tree/a.txt tree/b.txt"},
        {"cat list | sed 's#^#../home/data/#' | xargs rm", " ?tree @home/data home/data/f"},
        {"x | sed 's#^#../home/data/%s#' | xargs rm", " ?tree ~tree @home/data"},
        {"rm \"$(head -n1 list)\"; rm `sort list`", " ?tree @home/data/f"},
        {"tail list | xargs -IX mv a.txt ../out/X", "tree/a.txt ?out tree @home/data/f out"},
        {"tail list | xargs -IX cat ../out/X; rm a.txt", "tree/a.txt"},
        {"ln -s ../out l; find -L . -name '*.o' -delete", "out tree tree/l"},
        {"ln -s ../out l; find -L . -name '*.o' -print; find l -follow -type f | xargs rm",
         "out tree/l ?tree ~out @out"},
        {"setopt extendedglob; rm ../out/^*.log; rm sub/x#; cat ^a", "out tree/sub ~tree"},
        {"(cd none; cd sub && rm -f x); mkdir made; cd made; rm y", "tree/made/y tree/none/sub/x ?tree/made tree/sub"},
        {"printf '%s\\0' ../home/data/f 'b c' | xargs -0 rm; xargs -n1 <<< 'a.txt ../out' rm",
         " ?out tree @home/data/f out tree/a.txt"},
        {"ls ~/data/* | xargs -n1 rm; ls -d ../out | xargs wc", " ?tree @home/data home/data/f out"},
        {"docker cp web:/etc/. ~/data", " ~tree @home/data"},
        {"node -e \"require('fs').rmSync(process.env.HOME+'/data',{recursive:true})\"", " ?tree @home/data"},
        {"python3 -c 'import shutil, pathlib; shutil.rmtree(pathlib.Path.home() / \"data\" / \"f\")'",
         " ?tree @home/data"},
        {"python3 -c 'f(os.path.join(os.environ[\"HOME\"], \"data\"))'; perl -e 'unlink \"$ENV{HOME}/data/f\"'",
         " ?tree ~tree @home/data home/data/f"},
        {"php -r 'unlink(getenv(\"HOME\") . \"/data/f\");'", " ~tree @home/data/f"},
        {"ruby -e 'puts Dir.home, HOME'; node -e 'os.homedir()'", " ?tree"},
        {"ls ~/data; cat ../home/data/f", ""},
        {"find . -type f -exec grep -l x {} + -o -exec rm {} \\;", "tree ask"},
        {"echo \"$(unknown)\" `unknown`", " ?tree"},
        {"sort -o a.txt b.txt; sort -o none b.txt", " @tree/a.txt"},
        {"for c in rm ls; do $c a.txt; done; $(which rm) b.txt", "tree/a.txt tree/b.txt"},
        // Values that files give, and those that tests demand
        {". ./env; rm -rf $B/*; cd $D; rm x", "out/d/x tree/sub/c.txt ?out/d tree"},
        {". ./env; rm -rf \"$C\"/* \"$E\"/x; rm -rf ~/$NOPE", "home out/x deny ?tree"},
        {"rm -rf ~/$B; export B=\"$(x)\"; rm -rf ~/$B/x", "home deny ?tree"},
        {". ./none; rm -rf ~/$B", "home deny ?tree"},
        {". ./into; rm x", "out/x ?out tree @out"},
        {"echo > none; . ./none; rm -rf ~/$B", "tree/none ?tree"},
        {"export $(grep -v '^#' env | xargs); rm $B/x; rm -rf ~/$NOPE", "tree/sub/x ?tree @out"},
        {"eval \"$(x)\"; rm -rf ~/$NOPE", " ?tree"},
        {"rm -rf ~/${NOPE:?}; [ -n \"$NO\" ] && rm -rf ~/$NO", " ?tree"},
        {"[ -n \"$NO\" ] && ls; rm -rf ~/$NO", "home deny"},
        {"if [ -n \"$NO\" ]; then rm -rf ~/$NO; fi", " ?tree"},
        {"if ! [ \"$N\" ]; then rm -rf ~/$N; fi", "home deny"},
    };
    for (const Row& row : rows) EXPECT_EQ(judgedHere(row.command), row.expected) << row.command;
}

// A search that is not kept out of .git may take what git keeps there.
TEST_F(ShellGuardOnDisk, seesWhatReachesGitsOwnStores) {
    for (const char* name : {"tree/.git/HEAD", "tree/.git/refs/heads/topic.txt", "out/p/.git/HEAD"})
        folder.write(name, "x");
    context.projectRoots.push_back(root + "/out/p");
    const Row rows[] = {
        {"grep -rl refs . | xargs sed -i 's/refs/x/g'", "tree"},
        {"sed -i s/x/y/ $(grep -rl x .. --exclude=y)", "out/p tree"},
        {"grep -rl x src | xargs sed -i s/x/y/; grep -rl --exclude-dir=.git x . | xargs rm; grep -r x . | wc", ""},
        {"grep -rl --include='*.py' x . | xargs sed -i s/x/y/; grep -l x a.txt | xargs rm", ""},
        {"find . -type f -exec sed -i s/x/y/ {} +", "tree"},
        {"find .. -type f | xargs rm -f", "out/p tree"},
        {"find . -name '*.txt' -delete", "tree"},
        {"find . -name '*.o' -delete; find sub -type f -exec rm {} +; fd . -x rm; find . -maxdepth 1 -type f -exec rm "
         "{} +",
         ""},
        {"find . -type f ! -path './.git/*' -exec sed -i s/x/y/ {} +; find . -name .git -prune -o -type f -exec rm {} "
         "+",
         ""},
        {"find . -type f -not -name .gitignore -exec rm {} +", "tree"},
        {"fd -H x -x rm", "tree"},
        // That only the line as a whole tells what goes is no reason to leave git's state out.
        {"ls -A | xargs rm -rf", "tree"},
        {"rm -rf -- $(ls -A)", "tree"},
        {"for f in $(ls -a); do rm -rf \"$f\"; done", "tree"},
        {"ls -A | grep -v sub | xargs rm -rf", "tree"},
        {"rm -rf $(find . -mindepth 1 -maxdepth 1)", "tree"},
        {"rm -rf $(fd -uu -d1)", "tree"},
        {"ls | xargs rm -rf; rm -f $(find . -name '*.o') $(ls -A sub)", ""},
    };
    for (const Row& row : rows) {
        std::vector<std::string> reached;
        for (const GitStoreUse& use : analyze(row.command, context).gitStores) reached.push_back(use.folder);
        std::sort(reached.begin(), reached.end());
        EXPECT_EQ(joinedPaths(reached, root + "/"), row.expected) << row.command;
    }
}

// A script takes what lies beside it; where no copy is made of a whole folder, what the line names of it is saved.
TEST_F(ShellGuardOnDisk, savesBesideScriptsAndWhatWordsNameAtHome) {
    for (const char* name : {"other/run", "other/manage.py", "other/node_modules/.bin/tool", "notes/clean.sh",
                             "bin/tool", ".agent/x.py", "Documents/a.txt", "Documents/gen.py", "Documents/sub/x"})
        folder.write(std::string("home/") + name, "x");
    context.projectRoots.push_back(root + "/home/other");
    const Row rows[] = {
        {"../home/other/run", " ~tree @home/other"},
        {"sh $HOME/other/run", " ?tree @home/other"},
        {"python3 ../home/other/manage.py flush", " ?tree @home/other"},
        {"source ~/notes/clean.sh", " ?tree @home/notes"},
        {"~/bin/tool x; ~/other/node_modules/.bin/tool; python3 ~/.agent/x.py ../tree/sub/none; /usr/bin/nobody",
         " ?tree ~tree"},
        {"cd ~ && make -C other clean", " ?home @home/other"},
        {"cd ~ && ./other/run; npm --prefix=other run clean", " ?home ~home @home/other"},
        {"cd ~/Documents && python3 gen.py a.txt", " ?home/Documents @home/Documents/a.txt"},
        {"cd ~/Documents && ./gen a.txt sub", " ~home/Documents @home/Documents/a.txt home/Documents/sub"},
        {"tar czf b.tgz -C ~/Documents sub --remove-files", " ~home/Documents/sub @home/Documents/sub"},
        {"cd ~/Documents && ls a.txt; cat sub/x", ""},
        {"cd ~/Documents; git ls-files | grep -v y | xargs rm",
         " ?home/Documents @home/Documents/a.txt home/Documents/gen.py home/Documents/sub/x"},
        {"for f in $(jq .x f); do mv ~/Documents/$f .; done",
         " ?tree @home/Documents/a.txt home/Documents/gen.py home/Documents/sub/x"},
        {"du -a ~/Documents | cut -f2 | xargs rm",
         " ?tree @home/Documents/a.txt home/Documents/gen.py home/Documents/sub/x"},
        {"stat -c %n ~/Documents/*.txt | xargs rm", " ?tree @home/Documents/a.txt"},
        {"du -a ~/Documents | cut -f2 | xargs wc; make", " ?tree"},
        {"find ~/Documents -name sub -prune -o -type f -print | xargs rm",
         " ?tree ~home/Documents @home/Documents/a.txt home/Documents/gen.py home/Documents/sub home/Documents/sub/x"},
        {"ln -s ~/Documents L; rm L/*.txt", "home/Documents/a.txt tree/L"},
        {"ls | xargs -I{} cp {} ~/Documents/",
         " ?home/Documents tree @home/Documents/a.txt home/Documents/gen.py home/Documents/sub/x"},
        {"rm ~/Documents/**/*.txt", " ?home/Documents tree ~home/Documents/** @home/Documents/a.txt"},
        {"setopt extendedglob; rm ~/Documents/^*.txt",
         " ~tree @home/Documents/a.txt home/Documents/gen.py home/Documents/sub/x"},
    };
    for (const Row& row : rows) EXPECT_EQ(judgedHere(row.command), row.expected) << row.command;
}

TEST(ShellReading, knowsWhatBelongsToTheSystem) {
    for (const char* path :
         {"/usr", "/usr/lib/x", "/run", "/run/lock/x", "/dev/shmx", "/opt/homebrew/bin", "/System/x"})
        EXPECT_TRUE(belongsToSystem(path)) << path;
    for (const char* path : {"/", "/run/media/me/disk/x", "/run/user/1/x", "/dev/shm/x", "/opt/x", "/usrx", "/home/usr",
                             "/Volumes/x", "/media/x"})
        EXPECT_FALSE(belongsToSystem(path)) << path;
}

TEST_F(ShellGuardOnDisk, readsTextsThatAreRunAsCommands) {
    const Row rows[] = {
        {"bash -c 'cd sub && rm c.txt'; rm b.txt", "tree/b.txt tree/sub/c.txt"},
        {"env -C ../out sh -c 'rm x'; sudo -D sub eval 'rm c.txt'; rm b.txt", "out/x tree/b.txt tree/sub/c.txt"},
        {"find sub -exec env -C ../out sh -c 'rm x' \\; -exec env -C ../out rm y \\;", "out/x out/y tree/sub"},
        {"xargs sh -c 'rm ../out/x; rm \"$1\"' _ a.txt < none", "out/x ?tree"},
        {"fd -x sh -c 'rm ../out/x'; fd --base-directory ../out --search-path=in -x rm y", "out/in out/x out/y tree"},
        {"git -c core.editor='rm x' -C ../out -c Pager.log='rm y;:' commit", "out/x out/y"},
        {"GIT_EDITOR='rm x;:' git commit; export GIT_PAGER='rm y z'; git log; EDITOR=nano git commit",
         "tree/x tree/y tree/z"},
        {"GIT_WORK_TREE=../out GIT_EDITOR='rm x;:' git clean -fd", "out tree/x"},
        {"git config core.editor 'rm x;:' && git -C ../out commit; git config set alias.y '!rm z'; git y",
         "out/x tree/x tree/z ~tree @out"},
        {"git -c alias.x='!rm y' x z; git -c alias.x='clean -fd' x; git -c alias.x='!rm w' log",
         "tree tree/y tree/z ~tree"},
        {"git -c credential.helper='!rm x' fetch; git -c credential.helper=store -c core.pager=cat fetch", "tree/x"},
        {"git -C ../out clean -fdxe.env; sed --in-pl s/a/b/ a.txt", "out tree/a.txt tree/s/a/b"},
        {"git restore --staged a.txt; (cd ../out; git restore --staged --work a.txt)", " ?out @out"},
        {"git submodule deinit -f sub", "tree/sub ~tree"},
        {"sh -ec 'rm \"$1\" $2' sh a.txt b.txt", "tree/a.txt tree/b.txt"},
        {"sh -c 'rm \"$@\"' sh a.txt; sh -c 'rm -rf \"${1}\"/x'", "tree/a.txt /x"},
        {"rm -rf \"${1}\"/x; echo 'rm \"$1\"' | sh -s a.txt", " ?tree"},
        {"sudo -u bob timeout -k 5 10 nice -n 10 env -i X=1 zsh -lc \"rm -rf ~\"", "home deny"},
        {"eval \"rm $HOME/x\"; eval cd sub; rm c.txt", "home/x tree/sub/c.txt"},
        {"trap 'rm -f a.txt' EXIT; trap - INT", "tree/a.txt"},
        {"bash <<'EOF'\nrm a.txt\nEOF\nsh <<< 'rm b.txt'", "tree/a.txt tree/b.txt"},
        {"echo 'rm a.txt' | sh; printf '%s\\n' 'rm b.txt' | bash -s", "tree/a.txt tree/b.txt"},
        {"cat <<EOF | sudo bash\nrm $HOME/x\nEOF", "home/x"},
        {"curl -s https://x | sh; bash x.sh", " ?tree"},
        {"echo ls | head; grep -v x b.txt | sh", " ?tree"},
        {"git --version; git log $(rm x) | cat; GIT_PAGER='rm y;:'; git log; git diff --output=a.txt",
         "tree/x tree/y @tree/a.txt"},
        {"su -c 'rm a.txt' bob; flock /nowhere/l -c 'rm b.txt'; npx tsc", "tree/a.txt tree/b.txt ?tree"},
        {"uv run rm a.txt; poetry run mv b.txt c; bundle exec rspec", "tree/a.txt tree/b.txt tree/c ~tree"},
        {"env -C ../out rm x; rm a.txt", "out/x tree/a.txt"},
        {"tidewrack run -- rm a.txt; tidewrack run -C ../out -- rm -rf x; tidewrack log", "out/x tree/a.txt"},
        {"tidewrack -C ../out run -- rm x; npm --silent exec -- rm a.txt", "out/x tree/a.txt"},
        {"tidewrack --project . run -- rm -rf ~", "home deny"},
        {"a=(a.txt 'b c'); for f in \"${a[@]}\"; do rm \"$f\"; done", "tree/a.txt tree/b c"},
        {"set -- a.txt x; rm $1; mapfile l < x; rm $l; printf -v v x; rm $v", "tree/a.txt ?tree"},
        {"cd sub | true; cd sub & pushd -n sub; rm a.txt; cd sub; rm ~-/b.txt ~+/c.txt",
         "tree/a.txt tree/b.txt tree/sub/c.txt ?tree tree/sub"},
        {"((a = b > c)); if ((i<3)); then ls; fi; ((cd sub; rm c.txt) ; (rm a.txt))", "tree/a.txt tree/sub/c.txt"},
        {"git checkout -qf x; git reset --har; git restore -qf", "tree"},
        {"rm -rf *; rm -rf ./?*", "tree/a.txt tree/b.txt tree/sub ask"},
        {"grm a.txt; gmv b.txt c; X=$(rm -rf ../out)", "out tree/a.txt tree/b.txt tree/c"},
        {"f() { rm \"$1\"; }; f a.txt; for x in b.txt sub/c.txt; do f $x; done",
         "tree/a.txt tree/b.txt tree/sub/c.txt ?tree"},
        {"function f { local d=$1; shift; for x; do rm \"$d/$x\"; done; }; f sub c.txt d",
         "tree/sub/c.txt tree/sub/d ?tree"},
        {"f() ( cd sub && rm \"$1\" ); f c.txt; (cd ../out; f x); rm a.txt",
         "out/sub/x tree/a.txt tree/sub/c.txt ?tree tree/sub @out"},
        {"f() { g \"$1\"; rm -f a.txt; }; g() { f x; rm \"$1\"; }; f b.txt",
         "tree/a.txt tree/b.txt tree/x ?tree ~tree"},
        {"f() { if [ -n \"$1\" ]; then { rm $1; }; fi; }\nf a.txt b.txt", "tree/a.txt ?tree"},
        {"f() { ls; }; f; g() { mkdir \"$1\"; }; g x", ""},
        {"set -- a.txt b.txt x; shift; rm \"${@:2}\" \"$1\"; shift 9; rm \"$1\"", "tree/b.txt tree/x ?tree"},
        {"alias x='rm -rf'; x sub; alias ll='ls -l'; ll a.txt", "tree/sub"},
        {"alias rm='rm -i' c='cd sub; rm'\nrm a.txt; c c.txt; \\c x", "tree/a.txt tree/sub/c.txt ~tree/sub"},
        {"parallel -j 2 rm ::: a.txt 'b c'; parallel 'mv {} {}.bak' ::: b.txt",
         "tree/a.txt tree/b c tree/b.txt tree/b.txt.bak"},
        {"ls | parallel wc -l; parallel ls ::: a b; fd -t f -x wc -l; fd -e txt", ""},
        {"(cd sub; ls | parallel rm {}); ls ../out | parallel 'rm -rf ../out/{}'", " ?out tree tree/sub @out"},
        {"(cd sub; sh -c 'rm c.txt'; eval 'cd ../../out'; echo $(rm x)); rm a.txt", "out/x tree/a.txt tree/sub/c.txt"},
        {"fd -e txt . ../out -x rm {}; cd sub; fd x -X rm -f", "out tree/sub"},
        {"for c in a.txt b.txt; do eval 'for c in x y; do rm $c; done'; rm $c; done", "tree/x tree/y"},
        {"sh -c \"sh -c 'sh -c \\\"rm a.txt\\\"'\"", "tree/a.txt"},
        {"rm -rf \"$(pwd)/sub\" `echo a.txt`; cd $(mktemp -d) && rm -rf x",
         "tree/a.txt tree/sub /tmp/tmp.XXXXXXXXXX/x"},
    };
    for (const Row& row : rows) EXPECT_EQ(judgedHere(row.command), row.expected) << row.command;
}

TEST_F(ShellGuardOnDisk, readsWhatProgramsAreGivenToFollow) {
    const Row rows[] = {
        {"awk 'NR>1 && $1 > 3 {print $2}' a.txt; awk '{print (1 > 2) | \"sort -n\"}'; awk '/>/{print \">\"}' a.txt",
         ""},
        {"awk 'BEGIN{\"date\" | getline d; system(\"ls\")}'; cat a.txt | awk -F, -v 'a=>' '$1 > a {print $2 > "
         "\"/dev/stderr\"}'",
         ""},
        {"awk '{print $1, $2 >> \"b.txt\"}' a.txt; gawk -oa.txt 'BEGIN{}'; awk '{print > \"none\"}'",
         " @tree/a.txt tree/b.txt"},
        {"git archive -o a.txt HEAD; git bundle create -q b.txt HEAD; git archive HEAD | tar t",
         " @tree/a.txt tree/b.txt"},
        {"awk '{print > $2}' a.txt", " ~tree"},
        {"awk 'BEGIN{\"rm x\" | getline}'", " ~tree"},
        {"awk '{print | \"sh\"}' a.txt", " ~tree"},
        {"awk -f x.awk a.txt", " ~tree"},
        {"sed -n '/w /p;s/e w/x/;y/ew/ab/' a.txt; sed -e '1,/x/{p;q}' -e '$!N;a w b.txt' a.txt; sed -nE 's/(a)/w/gp'",
         ""},
        {"sed 's,a,b,gw b.txt' a.txt; sed -n '/x/w a.txt' b.txt; sed -es/a/i/ sub/c.txt", " @tree/a.txt tree/b.txt"},
        {"sed '/[/]/w b.txt' a.txt; sed 's/[^]/]/x/w a.txt' none; sed -l 5 's/[[:alpha:]/]/x/w sub/c.txt'; sed "
         "-i.before 's/x/y/' x",
         "tree/s/x/y tree/x @tree/a.txt tree/b.txt tree/sub/c.txt"},
        {"sed 's/[/x/w b.txt' a.txt", " ~tree @tree/b.txt"},
        {"awk 'function f() { return /\"/ } { print /x\"/ > \"b.txt\" }'; awk '/[/]/ { print > \"a.txt\" }'",
         " @tree/a.txt tree/b.txt"},
        {"awk '{ print \"x }' a.txt", " ~tree"},
        {"sed '1e rm x' a.txt", " ~tree"},
        {"sed 's|a|rm x|e' a.txt", " ~tree"},
        {"ls sub | xargs sed -f x.sed", " ?tree"},
        {"ed -s a.txt <<< $'1d\n/x/s/a/b/\nw b.txt\nq'", " @tree/a.txt tree/b.txt"},
        {"vim -es -c 'g/x/d' -c 'w! b.txt' -c 'q!' none; ex -s +'%s/a/b/' +x a.txt", " @tree/a.txt tree/b.txt"},
        {"ed <<< '!rm x'", " ~tree"},
        {"vim -es -c 'argdo s/a|b/c/ | w b.txt' -c 'e a.txt | x' none; ex -s +'g/x/d|q' none",
         " @tree/a.txt tree/b.txt"},
        {"vim -es -c 'normal ZZ' none", " ~tree"},
        {"vim -es -c 'd | !rm x' none", " ~tree"},
        {"cat x | vim -e -s a.txt", " ~tree @tree/a.txt"},
        {"sqlite3 :memory: 'select 1' '.once b.txt'; sqlite3 :memory: <<< '.output a.txt'; sqlite3 -readonly b.txt "
         ".tables",
         " @tree/a.txt tree/b.txt"},
        {"sqlite3 :memory: \"select writefile('a','b')\"", " ~tree"},
        {"sqlite3 none < x.sql", " ~tree"},
        {"strace -o b.txt ls; script -qc ls a.txt; cc -MMD -MF b.txt -dD -oa.txt x.c", " @tree/a.txt tree/b.txt"},
        {"perl -Mstrict -ne 'print if /x/' a.txt; tar -I zstd -tf x; psql -c 'select 1'; curl -s x | tar t", ""},
        {"perl -Mstrict -e unlink; (cd sub; tar cf /dev/null -I 'sh x' .); (cd ../out; psql -o x)",
         " ~out tree tree/sub @out"},
        {"python3 -c 'print(1 + 1)'; python3 -c \"import json; print(json.load(open('a.b'))['key'])\"; node -p "
         "'JSON.stringify({})'",
         ""},
        {"python3 -c \"import json; d=json.load(open('package.json')); print(d['name'])\"", ""},
        {"node -e \"const p = require('./package.json'); console.log(p.version, require('./a.json'))\"", ""},
        {"crontab -l; deno fmt --check; rustc --explain E0382; aws s3 rm s3://b/k; aws s3 cp a s3://b/k", ""},
        {"rsync -av sub/ host:/x/; rsync --delete a.txt me@host:x; rsync a.txt rsync://host/x", ""},
        {"git rebase -ix 'rm -rf ../out' main", "out tree"},
        {"git rebase --exec='make; rm ../out/x' main; git rebase -X theirs -x 'rm b.txt' m",
         "out/x tree tree/b.txt ?tree"},
        {"rsync -a host:a.txt .; rsync me@host:dir/b.txt host::m/c ../out; rsync host:d sub/c.txt",
         "out/b.txt out/c tree/a.txt tree/sub/c.txt"},
        {"cd ../out && rsync 'host:*.txt' . && rsync -R host:x/y .; rsync host: .", " ?out @out"},
        {"rsync --remove-source-files a.txt host:x; rsync b.txt ./h:x", "tree/a.txt tree/h:x"},
        {"git rm -r --cached a.txt; git apply --check x.patch; git apply --stat x.patch; git lfs ls-files", ""},
        {"python3 -c \"system = 1; sys.system('rm x')\"", " ?tree"},
        {"python3 -c \"import os; os = 1\"", " ?tree"},
        {"node -e \"require('./x.js')\"", " ?tree"},
        {"node -e \"require('./x' + '.json')\"", " ?tree"},
        {"deno fmt", " ?tree"},
        {"crontab x", " ~tree"},
        {"aws s3 cp s3://b/k a", " ~tree"},
        {"git apply --stat --apply x.patch; git rm a.txt", "tree"},
        {"python3 -c \"open('a', 'w')\"", " ?tree"},
        {"python3 -c 'import os; os.remove(x)'", " ?tree"},
        {"python3 -m json.tool a b c", " ?tree"},
        {"mypy src; npx tsc --noEmit; npx eslint src; cargo fmt --check; aws s3 ls; kubectl get pods; nvm use 20", ""},
        {"python3 -c 'from json import load\nimport sys, re; print(1)' x; bash -n x.sh; mypy --strict .", ""},
        {"npx eslint --fix src", " ?tree"},
        {"eslint -oa.txt src", " ~tree"},
        {"eslint --cache-location a.txt src", " ~tree"},
        {"mypy --html-report sub src", " ~tree"},
        {"ruff check --add-noqa", " ~tree"},
        {"tsc --noEmit --tsBuildInfoFile a.txt", " ~tree"},
        {"terraform plan -generate-config-out=a.tf", " ~tree"},
        {"python3 -c 'from items import load'", " ?tree"},
        {"python3 -c 'import json, version'", " ?tree"},
        {"python3 -c \"open('a', '\\\\x77')\"", " ?tree"},
        {"node -p 1 x.js", " ?tree"},
    };
    for (const Row& row : rows) EXPECT_EQ(judgedHere(row.command), row.expected) << row.command;
}

// What stands around a command loses none of its targets.
TEST_F(ShellGuardOnDisk, seesThroughWhatStandsAroundACommand) {
    const char* commands[] = {"rm -rf sub",
                              "mv a.txt b.txt",
                              "git checkout -- a.txt",
                              "find sub -name '*.txt' -delete",
                              "echo x > b.txt",
                              "sed -i s/a/b/ a.txt b.txt",
                              "rm -rf ~",
                              "cp sub/c.txt a.txt"};
    const std::pair<const char*, const char*> around[] = {{"true; ", ""},
                                                          {"(", ")"},
                                                          {"{ ", "; }"},
                                                          {"if true; then ", "; fi"},
                                                          {"! ", ""},
                                                          {"", " # it's"},
                                                          {"", " | cat"},
                                                          {"true && ", " || false"},
                                                          {"X=1 ", ""},
                                                          {"", " &"},
                                                          {"\n", "\n"},
                                                          {"sudo -u x ", ""},
                                                          {"env -u A B=c ", ""},
                                                          {"timeout 5 ", ""},
                                                          {"echo $(", ")"},
                                                          {"echo \"`", "`\""},
                                                          {"sh -c \"", "\""},
                                                          {"eval \"", "\""},
                                                          {"bash <<E\n", "\nE"},
                                                          {"cat <<'E'\nit's\nE\n", ""},
                                                          {"for i in 1 2; do ", "; done"},
                                                          {"cat <(", ")"},
                                                          {"case x in x) ", ";; esac"},
                                                          {"f() { ", "; }; f"},
                                                          {"(cd sub; cd ..; sh -c \"", "\")"},
                                                          {"alias x=y\nf() ( if true; then { ", "; }; fi ); f a"},
                                                          {"time nohup nice -n5 ", ""}};
    for (const char* command : commands) {
        const Decision plain = analyze(command, context);
        for (const auto& [before, behind] : around) {
            const std::string line = before + std::string(command) + behind;
            const Decision wrapped = analyze(line, context);
            EXPECT_TRUE(std::includes(wrapped.targets.begin(), wrapped.targets.end(), plain.targets.begin(),
                                      plain.targets.end()))
                << line;
            EXPECT_EQ(wrapped.verdict.kind, plain.verdict.kind) << line;
        }
    }
}
