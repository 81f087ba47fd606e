# To be sourced by scripts/demo: the chapter about the directory signer.

Chapter "Sealing a folder" \
    "A folder is sealed with a manifest: a hash and a signature for every file, a list of the folders, and a signature over
     the whole. First, the key pair."
mkdir -p "$drive/Product/bin" "$drive/Product/doc"
for name in bin/app.exe bin/core.dll doc/manual.txt doc/licence.txt start.lnk; do
    echo "contents of $name" >"$drive/Product/$name"
done
Zoctl keys generate 'C:\keys'
Zoctl sign 'C:\Product' --manifest 'C:\product.manifest' --keystore 'C:\keys'
Zoctl verify 'C:\Product' --manifest 'C:\product.manifest' --keystore 'C:\keys'
Say "Six ways to tamper with it: change a file, delete one, delete a shortcut, plant a file, plant a folder, plant a link."
echo "other contents" >"$drive/Product/bin/core.dll"
rm "$drive/Product/doc/licence.txt" "$drive/Product/start.lnk"
echo "planted" >"$drive/Product/bin/version.dll"
mkdir "$drive/Product/doc/extra"
ln -s "$drive/windows" "$drive/Product/link"
Expecting 23 Zoctl verify 'C:\Product' --manifest 'C:\product.manifest' --keystore 'C:\keys'
Say "And a seventh: the manifest itself."
sed -i 's/manual/Manual/' "$drive/product.manifest"
Expecting 32 Zoctl verify 'C:\Product' --manifest 'C:\product.manifest' --keystore 'C:\keys'
